#include "live_session.h"

#include <string.h>
#include <set>
#include <ravelkit/ravelkit_logger.h>

namespace ravelkit_live {

namespace {

struct Shared {
    skclass::CriticalSection lock;
    std::set<Session *> sessions;
    std::string lastText;
    int lastNumber = 0;
    vmcLoggerCallback logger = nullptr;
};

// Never destroyed: entry points may run while the process ends.
Shared &State() {
    static Shared *shared = new Shared;
    return *shared;
}

}  // namespace

Session *Checked(void *session) {
    skclass::CsLock hold(State().lock);
    auto found = State().sessions.find(static_cast<Session *>(session));
    return found == State().sessions.end() ? nullptr : *found;
}

void Remember(Session *session) {
    skclass::CsLock hold(State().lock);
    State().sessions.insert(session);
}

void Forget(Session *session) {
    skclass::CsLock hold(State().lock);
    State().sessions.erase(session);
}

void SetLastError(const std::string &text, int number) {
    skclass::CsLock hold(State().lock);
    State().lastText = text;
    State().lastNumber = number;
}

void GetLastErrorText(std::string &text, int &number) {
    skclass::CsLock hold(State().lock);
    text = State().lastText;
    number = State().lastNumber;
}

int Fail(int result, const std::string &text, int number) {
    SetLastError(text, number);
    Log(text);
    return result;
}

void SetLogger(vmcLoggerCallback logger) {
    skclass::CsLock hold(State().lock);
    State().logger = logger;
}

void Log(const std::string &line) {
    vmcLoggerCallback logger;
    {
        skclass::CsLock hold(State().lock);
        logger = State().logger;
    }
    if (!logger || line.empty()) return;
    ravelkit::CallLogger(logger, "%s", line.c_str());
}

}  // namespace ravelkit_live
