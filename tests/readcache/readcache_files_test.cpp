// The files around a read pass: the extent list that drives it (malformed,
// without extents) and the metadata export that opens it.
// (A failing key list: the fault matrix.)
#include <algorithm>

#include <vddksim.h>

#include <dbtest/files.h>

#include "readcache_fixture.h"

namespace readcachetest {
namespace {

class ReadCacheFilesTest : public ReadCacheTest {
protected:
    void SetUp() override {
        ReadCacheTest::SetUp();
        StartService(Model{L"", 0});
    }
    // "<missing>" tells a missing export from an empty one.
    std::string ReadWholeFile(const std::wstring &path) { return dbtest::ReadWholeFile(path, "<missing>"); }
    // The export as the disk's own keys and values make it: key, zero, value
    // with its zero.
    std::string ExpectedMetadata(_vixReadWriteHandle *handle) {
        size_t length = 0;
        service->VixDiskLib_GetMetadataKeys(handle, nullptr, 0, &length);
        std::string keys(length, '\0');
        EXPECT_EQ(service->VixDiskLib_GetMetadataKeys(handle, &keys[0], length, &length), VixError(VIX_OK));
        std::string expected;
        for (size_t at = 0; at < keys.size() && keys[at] != '\0';) {
            const std::string key = keys.c_str() + at;
            size_t valueLength = 0;
            service->VixDiskLib_ReadMetadata(handle, key.c_str(), nullptr, 0, &valueLength);
            std::string value(valueLength, '\0');
            EXPECT_EQ(service->VixDiskLib_ReadMetadata(handle, key.c_str(), &value[0], value.size(), &valueLength),
                      VixError(VIX_OK));
            expected += key + '\0' + value;
            at += key.size() + 1;
        }
        return expected;
    }
};

TEST_F(ReadCacheFilesTest, AnExtentListThatCannotBeReadStartsNoPass) {
    ASSERT_TRUE(OpenWithCache("memdisk://lists?size=65536&seed=1", 2, 64, {{{0, 65536}}}));
    Prepare(cache->context, disk, WriteFileText(L"malformed.xml", "<DiskChangeInfo><area></DiskChangeInfo>"));
    EXPECT_EQ(service->startDiskReadBuffer(&cache->context), kXmlError);
    EXPECT_FALSE(cache->context.readActive);
    EXPECT_EQ(cache->context.extentReader, nullptr);
    EXPECT_EQ(Calls("VixDiskLib_GetMetadataKeys"), 0u) << "no pass started";

    // The context is still good for a list that loads.
    Prepare(cache->context, disk, WriteExtentList(L"good.xml", {{{0, 65536}}}));
    Stream stream;
    ASSERT_TRUE(StreamPass(cache->context, 65536, stream));
    EXPECT_EQ(stream.bytes, DirectRead(disk, {{{0, 65536}}}));
}

// No area with an extent: the pass hands on its one empty buffer and ends,
// without reading.
TEST_F(ReadCacheFilesTest, AListWithoutExtentsGivesAnEmptyPass) {
    ASSERT_TRUE(OpenWithCache("memdisk://empty?size=65536&seed=1", 2, 64, {{}, {}}));
    Stream stream;
    ASSERT_TRUE(StreamPass(cache->context, 4096, stream));
    EXPECT_EQ(stream.lastResult, kEndOfData);
    EXPECT_EQ(stream.lengths, std::vector<unsigned>{0u});
    EXPECT_EQ(ReadWholeFile(cache->context.metadataFilePath), "") << "a memory disk has no keys";
    EXPECT_EQ(Calls("VixDiskLib_Read"), 0u);
    EXPECT_EQ(cache->context.freeQueue.Count(), 2u) << "the empty buffer goes back too";
}

// The export is whole before startDiskReadBuffer returns. A value that cannot
// be read is asked for again until it can (a passing failure costs nothing); one
// longer than the 1024-byte buffer is read once more at the length VMware gives,
// instead of for ever. A later pass never overwrites the file.
TEST_F(ReadCacheFilesTest, MetadataIsExportedWholeBeforeThePassAndNeverOverwritten) {
    ASSERT_TRUE(OpenWithCache(CreateSparseDisk(L"meta.vmdk", 2048, {{0, 8}}, 1), 2, 64, {{{0, 4096}}}));
    std::string uuid(1500, '\0');
    for (size_t i = 0; i < uuid.size(); ++i) uuid[i] = "0123456789abcdef"[i % 16];
    ASSERT_EQ(service->VixDiskLib_WriteMetadata(disk, "uuid", uuid.c_str()), VixError(VIX_OK));
    const std::string expected = ExpectedMetadata(disk);
    ASSERT_NE(expected.find(uuid), std::string::npos);
    ASSERT_EQ(sim.ScriptResult("VixDiskLib_ReadMetadata", 3, VIX_E_DISK_NOIO), 1);
    const uint64_t readsBefore = Calls("VixDiskLib_ReadMetadata");
    const std::wstring metadataPath = cache->context.metadataFilePath;
    ASSERT_EQ(service->startDiskReadBuffer(&cache->context), 0);
    EXPECT_EQ(cache->context.metadataDone, 1) << "startDiskReadBuffer returns after the export";
    EXPECT_EQ(ReadWholeFile(metadataPath), expected);
    // key, zero, value, zero: two zeros a key.
    const size_t keys = static_cast<size_t>(std::count(expected.begin(), expected.end(), '\0')) / 2;
    EXPECT_EQ(Calls("VixDiskLib_ReadMetadata") - readsBefore, keys + 3 + 1)
        << "three failed reads, and one more read for the long value only";
    std::vector<uint8_t> bytes(4096);
    unsigned length = 4096;
    EXPECT_EQ(service->GetDiskCacheBuffer(&cache->context, bytes.data(), &length), 0);
    EXPECT_EQ(cache->Close(), 0);

    // A second pass to the same file: created new, so it fails, and the pass goes on.
    Prepare(cache->context, disk, WriteExtentList(L"meta.xml", {{{0, 4096}}}));
    cache->context.metadataFilePath = metadataPath;
    Stream stream;
    ASSERT_TRUE(StreamPass(cache->context, 4096, stream));
    EXPECT_EQ(stream.lastResult, kEndOfData);
    EXPECT_EQ(stream.bytes, DirectRead(disk, {{{0, 4096}}}));
    EXPECT_EQ(ReadWholeFile(metadataPath), expected);
}

}  // namespace
}  // namespace readcachetest
