// Per-handle read statistics, kept by the disk library binding around reads of
// a stand-in memory disk: one line per contiguous extent, runs of equal-sized
// requests, the last line at Close. The write line is checked through the
// service (service_handle_test).
#include <memory>
#include <vector>

#include "binding_fixture.h"

#include <vixdisklibglue.h>

namespace bindingtest {
namespace {

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
        ASSERT_EQ(disk->VixDiskLib_Open(connection, "memdisk://reads?size=1048576", 0, &handle), VIX_OK);
        stats.name = L"reads";
        stats.kind = _vixReadWriteStats::kRead;
        log.Clear();
    }
    void TearDown() override {
        if (handle) disk->VixDiskLib_Close(handle, &stats);
        if (connection) disk->VixDiskLib_Disconnect(connection);
        disk.reset();
        BindingTest::TearDown();
    }

    std::unique_ptr<vixDiskLibGlue> disk;
    VixDiskLibConnection connection = nullptr;
    VixDiskLibHandle handle = nullptr;
    _vixReadWriteStats stats;
};

// 128 sectors at 0, 128, 256, then 64 at 384: one extent in two runs, printed
// when the read at 1000 breaks it; that read starts the next extent, which
// Close prints before its own trace line. Every read reaches the disk.
TEST_F(StatsTest, OneLinePerContiguousExtentAndOneAtClose) {
    const struct {
        uint64_t start, count;
    } reads[] = {{0, 128}, {128, 128}, {256, 128}, {384, 64}, {1000, 128}};
    std::vector<uint8> buffer(128 * 512);
    for (const auto &r : reads) {
        ASSERT_EQ(disk->VixDiskLib_Read(handle, r.start, r.count, buffer.data(), &stats), VIX_OK);
    }
    EXPECT_EQ(Calls("VixDiskLib_Read"), 5u);
    const VixDiskLibHandle closed = handle;
    handle = nullptr;
    EXPECT_EQ(disk->VixDiskLib_Close(closed, &stats), VIX_OK);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{
                               L"VixDiskLib_Read(reads) No of reads: 4 Data chunks: [3 * 128], [1 * 64] Data extent: "
                               L"[00000000-00000448(00000000-00229376)] ",
                               L"VixDiskLib_Read(reads) No of reads: 1 Data chunks: [1 * 128] Data extent: "
                               L"[00001000-00000128(00512000-00065536)] ",
                               Api(L"VixDiskLib_Close(0x" + Padded(closed) + L")"),
                           }));
    EXPECT_EQ(sim.VddkSim_OpenHandleCount(), 0u);
}

// A request size that changes on every read adds a run each time: past a
// bound the runs are no longer spelled out, so an extent read in ever
// different sizes cannot grow the text (and the line) without end.
TEST_F(StatsTest, TheRunTextStopsGrowingAtItsBound) {
    uint64_t sector = 0;
    std::vector<uint8> bytes(2 * 512);
    for (int i = 0; i < 1000; ++i) {  // 1500 sectors, one contiguous extent
        const uint64_t count = 1 + i % 2;
        ASSERT_EQ(disk->VixDiskLib_Read(handle, sector, count, bytes.data(), &stats), VIX_OK);
        sector += count;
    }
    EXPECT_LT(stats.chunkText.size(), 4200u);
    EXPECT_EQ(stats.chunkText.substr(stats.chunkText.size() - 5), L", ...");
}

}  // namespace
}  // namespace bindingtest
