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

    // A 2048-sector memory disk named name; writes are checked against its pattern.
    VixDiskLibHandle Open(const std::string &name) {
        VixDiskLibHandle handle = nullptr;
        const std::string path = "memdisk://" + name + "?size=1048576&seed=" + std::to_string(kSeed) + "&verify=1";
        EXPECT_EQ(disk->VixDiskLib_Open(connection, path.c_str(), 0, &handle), VIX_OK);
        return handle;
    }
    // Reads (or writes back the pattern of) count sectors at start, with stats.
    void Read(VixDiskLibHandle handle, uint64_t start, uint64_t count, _vixReadWriteStats *stats) {
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
    std::wstring CloseLine(VixDiskLibHandle handle) { return Api(L"VixDiskLib_Close(0x" + Padded(handle) + L")"); }

    std::unique_ptr<vixDiskLibGlue> disk;
    VixDiskLibConnection connection = nullptr;
    std::vector<uint64_t> buffer;
};

// 128 sectors at 0, 128, 256, then 64 at 384: one extent in two runs, printed
// when the read at 1000 breaks it; that read starts the next extent, which
// Close prints and empties.
TEST_F(StatsTest, ReadLineIsPrintedWhenContiguityBreaksAndAtClose) {
    VixDiskLibHandle handle = Open("reads");
    _vixReadWriteStats stats;
    stats.name = L"reads";
    stats.kind = _vixReadWriteStats::kRead;
    log.Clear();
    for (uint64_t start : {0, 128, 256}) Read(handle, start, 128, &stats);
    Read(handle, 384, 64, &stats);
    EXPECT_TRUE(log.Lines().empty());
    Read(handle, 1000, 128, &stats);
    EXPECT_EQ(std::make_tuple(stats.extentStart, stats.extentSectors, stats.operationCount, stats.chunkSectors,
                              stats.chunkCount, stats.chunkText),
              std::make_tuple(uint64_t(1000), uint64_t(128), 1u, uint64_t(128), 1u, wcstring()));
    EXPECT_EQ(disk->VixDiskLib_Close(handle, &stats), VIX_OK);
    EXPECT_EQ(log.Lines(),
              (std::vector<std::wstring>{
                  L"VixDiskLib_Read(reads) No of reads: 4 Data chunks: [3 * 128], [1 * 64] Data extent: "
                  L"[00000000-00000448(00000000-00229376)] ",
                  L"VixDiskLib_Read(reads) No of reads: 1 Data chunks: [1 * 128] Data extent: "
                  L"[00001000-00000128(00512000-00065536)] ",
                  CloseLine(handle)}));
    EXPECT_EQ(std::make_tuple(stats.name, stats.kind, stats.extentStart, stats.extentSectors, stats.operationCount,
                              stats.chunkSectors, stats.chunkCount, stats.chunkText),
              std::make_tuple(wcstring(), 0u, uint64_t(0), uint64_t(0), 0u, uint64_t(0), 0u, wcstring()))
        << "Close empties the record";
}

// A request size that changes on every read adds a run each time: past a
// bound the runs are no longer spelled out, so an extent read in ever
// different sizes cannot grow the text (and the line) without end.
TEST_F(StatsTest, TheRunTextStopsGrowingAtItsBound) {
    VixDiskLibHandle handle = Open("sizes");
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

// The write line has no blank before its extent bracket; a run that changes
// size and comes back is a new run.
TEST_F(StatsTest, WriteLineKeepsItsOwnSpacingAndRunsInOrder) {
    VixDiskLibHandle handle = Open("writes");
    _vixReadWriteStats stats;
    stats.name = L"writes";
    stats.kind = _vixReadWriteStats::kWrite;
    log.Clear();
    Write(handle, 10, 8, &stats);
    Write(handle, 18, 8, &stats);
    Write(handle, 26, 16, &stats);
    Write(handle, 42, 8, &stats);
    EXPECT_EQ(disk->VixDiskLib_Close(handle, &stats), VIX_OK);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{
                               L"VixDiskLib_Write(writes) No of writes: 4 Data chunks: [2 * 8], [1 * 16], [1 * 8] "
                               L"Data extent:[00000010-00000040(00005120-00020480)] ",
                               CloseLine(handle)}));
    EXPECT_EQ(sim.VddkSim_MemDiskWrittenSectors("writes"), 40u) << "every write reached the disk";
    EXPECT_EQ(sim.VddkSim_MemDiskMismatches("writes"), 0u);
}

// A 0-sector request at sector 0 counts but leaves the extent empty, so the
// next request starts the extent afresh; one further in is a run of its own
// that starts with count 0.
TEST_F(StatsTest, ZeroSectorRequestsLeaveTheExtentEmptyOrCountNothing) {
    VixDiskLibHandle handle = Open("empty");
    _vixReadWriteStats stats;
    stats.name = L"empty";
    stats.kind = _vixReadWriteStats::kRead;
    log.Clear();
    disk->VixDiskLib_Read(handle, 0, 0, nullptr, &stats);
    EXPECT_EQ(stats.operationCount, 1u);
    EXPECT_EQ(stats.extentSectors, 0u);
    Read(handle, 500, 4, &stats);
    EXPECT_EQ(stats.operationCount, 2u);
    EXPECT_EQ(stats.extentStart, 500u);
    disk->VixDiskLib_Read(handle, 504, 0, nullptr, &stats);
    Read(handle, 504, 4, &stats);
    EXPECT_EQ(disk->VixDiskLib_Close(handle, &stats), VIX_OK);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{
                               L"VixDiskLib_Read(empty) No of reads: 4 Data chunks: [1 * 4], [0 * 0], [1 * 4] Data "
                               L"extent: [00000500-00000008(00256000-00004096)] ",
                               CloseLine(handle)}));
}

// Closing an unused handle prints zero counts and [0 * 0] for kinds 1 and 2;
// kind 0 prints no statistics line at all, also when an extent breaks.
TEST_F(StatsTest, CloseWithoutRequestsAndKindZero) {
    const struct {
        uint32_t kind;
        const wchar_t *line;  // null: none
    } cases[] = {
        {_vixReadWriteStats::kRead,
         L"VixDiskLib_Read(idle) No of reads: 0 Data chunks: [0 * 0] Data extent: "
         L"[00000000-00000000(00000000-00000000)] "},
        {_vixReadWriteStats::kWrite,
         L"VixDiskLib_Write(idle) No of writes: 0 Data chunks: [0 * 0] Data extent:"
         L"[00000000-00000000(00000000-00000000)] "},
        {_vixReadWriteStats::kNone, nullptr},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.kind);
        VixDiskLibHandle handle = Open("idle");
        _vixReadWriteStats stats;
        stats.name = L"idle";
        stats.kind = c.kind;
        log.Clear();
        if (c.kind == _vixReadWriteStats::kNone) {
            Read(handle, 8, 8, &stats);
            Read(handle, 100, 8, &stats);
        }
        EXPECT_EQ(disk->VixDiskLib_Close(handle, &stats), VIX_OK);
        std::vector<std::wstring> expected;
        if (c.line) expected.push_back(c.line);
        expected.push_back(CloseLine(handle));
        EXPECT_EQ(log.Lines(), expected);
    }
}

TEST_F(StatsTest, NullStatisticsForwardWithoutBookkeeping) {
    VixDiskLibHandle handle = Open("plain");
    log.Clear();
    Read(handle, 0, 8, nullptr);
    Read(handle, 300, 8, nullptr);
    Write(handle, 600, 2, nullptr);
    EXPECT_EQ(disk->VixDiskLib_Close(handle, nullptr), VIX_OK);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{CloseLine(handle)}));
    EXPECT_EQ(Calls("VixDiskLib_Read"), 2u);
    EXPECT_EQ(sim.VddkSim_MemDiskWrittenSectors("plain"), 2u);
    EXPECT_EQ(sim.VddkSim_OpenHandleCount(), 0u);
}

}  // namespace
}  // namespace bindingtest
