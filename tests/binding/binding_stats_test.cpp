// Per-handle read/write statistics, kept by the disk library binding around
// real reads and writes of stand-in memory disks: one line per contiguous
// extent, runs of equal-sized requests, and the final line at Close.
#include <memory>
#include <tuple>

#include <vddksim.h>

#include "binding_fixture.h"

#include <vixdisklibglue.h>

namespace bindingtest {
namespace {

constexpr uint64_t kSeed = 77;
constexpr uint64_t kWordsPerSector = 512 / 8;

class StatsTest : public BindingTest {
protected:
    void SetUp() override {
        BindingTest::SetUp();
        Install();
        disk = std::make_unique<vixDiskLibGlue>();
        ASSERT_TRUE(disk->OK());
        ASSERT_TRUE(Attach(disk->moduleHandle.get()));
        ASSERT_EQ(disk->VixDiskLib_InitEx(8, 0, nullptr, nullptr, nullptr, nullptr, nullptr), VIX_OK);
        ASSERT_EQ(disk->VixDiskLib_Connect(nullptr, &connection), VIX_OK);
    }
    void TearDown() override {
        if (connection) disk->VixDiskLib_Disconnect(connection);
        disk.reset();
        BindingTest::TearDown();
    }

    // Reads count sectors at start and checks them against the pattern (so a
    // read that never reached the disk fails), or writes the pattern there. A
    // 0-sector read passes no buffer; its result does not matter.
    void Read(VixDiskLibHandle handle, uint64_t start, uint64_t count, _vixReadWriteStats *stats) {
        if (count == 0) {
            disk->VixDiskLib_Read(handle, start, 0, nullptr, stats);
            return;
        }
        buffer.assign(count * kWordsPerSector, 0);
        ASSERT_EQ(disk->VixDiskLib_Read(handle, start, count, reinterpret_cast<uint8 *>(buffer.data()), stats),
                  VIX_OK);
        for (uint64_t word = 0; word < buffer.size(); ++word)
            ASSERT_EQ(buffer[word], VddkSimPatternWord(kSeed, start * kWordsPerSector + word)) << "word " << word;
    }
    void Write(VixDiskLibHandle handle, uint64_t start, uint64_t count, _vixReadWriteStats *stats) {
        buffer.resize(count * kWordsPerSector);
        for (uint64_t word = 0; word < buffer.size(); ++word)
            buffer[word] = VddkSimPatternWord(kSeed, start * kWordsPerSector + word);
        ASSERT_EQ(disk->VixDiskLib_Write(handle, start, count, reinterpret_cast<const uint8 *>(buffer.data()), stats),
                  VIX_OK);
    }

    std::unique_ptr<vixDiskLibGlue> disk;
    VixDiskLibConnection connection = nullptr;
    std::vector<uint64_t> buffer;
};

// {R, start, count}: a read of count sectors at start; {W, ...}: a write.
struct Request {
    bool write;
    uint64_t start, count;
};
constexpr bool R = false, W = true;

// A handle's requests, then Close: the statistics lines in order (the last
// one printed by Close, before its own trace line), every request forwarded,
// and the record emptied.
TEST_F(StatsTest, OneLinePerContiguousExtentAndOneAtClose) {
    const struct {
        const char *name;
        uint32_t kind;
        bool withRecord;  // false: the calls get a null record
        std::vector<Request> requests;
        std::vector<std::wstring> lines;
    } cases[] = {
        // 128 sectors at 0, 128, 256, then 64 at 384: one extent in two runs,
        // printed when the read at 1000 breaks it; that read starts the next
        // extent, which Close prints.
        {"reads", _vixReadWriteStats::kRead, true,
         {{R, 0, 128}, {R, 128, 128}, {R, 256, 128}, {R, 384, 64}, {R, 1000, 128}},
         {L"VixDiskLib_Read(reads) No of reads: 4 Data chunks: [3 * 128], [1 * 64] Data extent: "
          L"[00000000-00000448(00000000-00229376)] ",
          L"VixDiskLib_Read(reads) No of reads: 1 Data chunks: [1 * 128] Data extent: "
          L"[00001000-00000128(00512000-00065536)] "}},
        // The write line has no blank before its extent bracket; a run that
        // changes size and comes back is a new run.
        {"writes", _vixReadWriteStats::kWrite, true, {{W, 10, 8}, {W, 18, 8}, {W, 26, 16}, {W, 42, 8}},
         {L"VixDiskLib_Write(writes) No of writes: 4 Data chunks: [2 * 8], [1 * 16], [1 * 8] "
          L"Data extent:[00000010-00000040(00005120-00020480)] "}},
        // A 0-sector request at sector 0 counts but leaves the extent empty, so
        // the next request starts the extent afresh; one further in is a run of
        // its own that starts with count 0.
        {"empty", _vixReadWriteStats::kRead, true, {{R, 0, 0}, {R, 500, 4}, {R, 504, 0}, {R, 504, 4}},
         {L"VixDiskLib_Read(empty) No of reads: 4 Data chunks: [1 * 4], [0 * 0], [1 * 4] Data "
          L"extent: [00000500-00000008(00256000-00004096)] "}},
        // An unused handle prints zero counts and [0 * 0] for kinds 1 and 2 ...
        {"idle", _vixReadWriteStats::kRead, true, {},
         {L"VixDiskLib_Read(idle) No of reads: 0 Data chunks: [0 * 0] Data extent: "
          L"[00000000-00000000(00000000-00000000)] "}},
        {"idle", _vixReadWriteStats::kWrite, true, {},
         {L"VixDiskLib_Write(idle) No of writes: 0 Data chunks: [0 * 0] Data extent:"
          L"[00000000-00000000(00000000-00000000)] "}},
        // ... kind 0 prints no statistics line at all, also when an extent breaks.
        {"idle", _vixReadWriteStats::kNone, true, {{R, 8, 8}, {R, 100, 8}}, {}},
        // Without a record the calls are forwarded with no bookkeeping.
        {"plain", _vixReadWriteStats::kNone, false, {{R, 0, 8}, {R, 300, 8}, {W, 600, 2}}, {}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << c.name << ", kind " << c.kind);
        VixDiskLibHandle handle = nullptr;
        const std::string path = "memdisk://" + std::string(c.name) + "?size=1048576&seed=" + std::to_string(kSeed) +
                                 "&verify=1";  // writes are checked against the pattern
        ASSERT_EQ(disk->VixDiskLib_Open(connection, path.c_str(), 0, &handle), VIX_OK);
        _vixReadWriteStats record;
        record.name = Wide(c.name);
        record.kind = c.kind;
        _vixReadWriteStats *stats = c.withRecord ? &record : nullptr;
        uint64_t written = 0;
        log.Clear();
        for (const Request &r : c.requests) {
            if (r.write) {
                Write(handle, r.start, r.count, stats);
                written += r.count;
            } else {
                Read(handle, r.start, r.count, stats);
            }
        }
        EXPECT_EQ(disk->VixDiskLib_Close(handle, stats), VIX_OK);
        std::vector<std::wstring> expected = c.lines;
        expected.push_back(Api(L"VixDiskLib_Close(0x" + Padded(handle) + L")"));
        EXPECT_EQ(log.Lines(), expected);
        EXPECT_EQ(sim.VddkSim_MemDiskWrittenSectors(c.name), written) << "every write reached the disk";
        EXPECT_EQ(sim.VddkSim_MemDiskMismatches(c.name), 0u);
        EXPECT_EQ(sim.VddkSim_OpenHandleCount(), 0u);
        if (c.withRecord) {
            EXPECT_EQ(std::make_tuple(record.name, record.kind, record.extentStart, record.extentSectors,
                                      record.operationCount, record.chunkSectors, record.chunkCount, record.chunkText),
                      std::make_tuple(wcstring(), 0u, uint64_t(0), uint64_t(0), 0u, uint64_t(0), 0u, wcstring()))
                << "Close empties the record";
        }
    }
}

// A request size that changes on every read adds a run each time: past a
// bound the runs are no longer spelled out, so an extent read in ever
// different sizes cannot grow the text (and the line) without end.
TEST_F(StatsTest, TheRunTextStopsGrowingAtItsBound) {
    VixDiskLibHandle handle = nullptr;
    ASSERT_EQ(disk->VixDiskLib_Open(connection, "memdisk://sizes?size=1048576", 0, &handle), VIX_OK);
    _vixReadWriteStats stats;
    stats.name = L"sizes";
    stats.kind = _vixReadWriteStats::kRead;
    uint64_t sector = 0;
    std::vector<uint8> bytes(2 * 512);
    for (int i = 0; i < 1000; ++i) {  // 1500 sectors, one contiguous extent
        const uint64_t count = 1 + i % 2;
        ASSERT_EQ(disk->VixDiskLib_Read(handle, sector, count, bytes.data(), &stats), VIX_OK);
        sector += count;
    }
    EXPECT_LT(stats.chunkText.size(), 4200u);
    EXPECT_EQ(stats.chunkText.substr(stats.chunkText.size() - 5), L", ...");
    EXPECT_EQ(disk->VixDiskLib_Close(handle, &stats), VIX_OK);
}

}  // namespace
}  // namespace bindingtest
