#include "logsinks.h"

#include <vector>
#include <skclass_mini/win.h>

namespace sklog {
namespace {

struct SinkEntry {
    int id;
    SK_LogSink sink;
    void *context;
};

// Delivery holds the lock shared, registration exclusive: once SK_RemoveLogSink
// returns, no thread is inside that sink any more, so its context may be freed.
struct SinkTable {
    SRWLOCK lock = SRWLOCK_INIT;
    std::vector<SinkEntry> entries;  // registration order; guarded by lock
    int nextId = 1;                  // guarded by lock
};

SinkTable &Sinks() noexcept {
    // Never destroyed: sinks may be removed from other modules' exit code.
    static SinkTable *table = new SinkTable;
    return *table;
}

// Set while this thread runs sinks: a line a sink logs must not re-enter the
// shared lock (a waiting registration would deadlock it) nor recurse.
thread_local bool deliveringOnThisThread = false;

}  // namespace

void DeliverToSinks(const SK_LogRecord &record) noexcept {
    if (deliveringOnThisThread) return;
    SinkTable &table = Sinks();
    deliveringOnThisThread = true;
    AcquireSRWLockShared(&table.lock);
    for (const SinkEntry &entry : table.entries) {
        try {
            entry.sink(entry.context, &record);
        } catch (...) {
            // A sink's failure must not stop the logging thread nor the others.
        }
    }
    ReleaseSRWLockShared(&table.lock);
    deliveringOnThisThread = false;
}

}  // namespace sklog

int SK_AddLogSink(SK_LogSink sink, void *context) {
    if (sink == nullptr) return 0;
    sklog::SinkTable &table = sklog::Sinks();
    int id = 0;
    AcquireSRWLockExclusive(&table.lock);
    try {
        table.entries.push_back({table.nextId, sink, context});
        id = table.nextId++;
    } catch (...) {
        id = 0;
    }
    ReleaseSRWLockExclusive(&table.lock);
    return id;
}

void SK_RemoveLogSink(int id) {
    sklog::SinkTable &table = sklog::Sinks();
    AcquireSRWLockExclusive(&table.lock);
    for (auto it = table.entries.begin(); it != table.entries.end(); ++it) {
        if (it->id == id) {
            table.entries.erase(it);
            break;
        }
    }
    ReleaseSRWLockExclusive(&table.lock);
}
