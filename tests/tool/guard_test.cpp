// Which files a command must not write: a descriptor that leads nowhere or in
// a circle, and file identity that sees through other names.
#include <string>

#include <gtest/gtest.h>

#include <dbtest/temp_dir.h>

#include "errors.h"
#include "files.h"
#include "guard.h"
#include "tool_checks.h"

namespace {

using namespace dbtool;
using tooltest::ErrorOf;
using tooltest::Holds;

// The files of a disk through its extents and parents are tested by
// source_safety.sh, on the flat and sparse disks qemu-img makes.
TEST(Guard, AParentLoopOrGarbageEnds) {
    dbtest::TempDir dir;
    WriteWholeFile(dir.File(L"loop.vmdk"), "createType=\"vmfsSparse\"\nparentFileNameHint=\"loop.vmdk\"\n");
    EXPECT_GT(DiskFiles(dir.File(L"loop.vmdk")).size(), 1u);
    std::string header(64, '\xff');
    header.replace(0, 4, "KDMV");
    WriteWholeFile(dir.File(L"bad.vmdk"), header);
    EXPECT_EQ(DiskFiles(dir.File(L"bad.vmdk")).size(), 1u);
    EXPECT_EQ(DiskFiles(dir.File(L"missing.vmdk")).size(), 1u);
}

// Other spellings and hard links of the source are refused in source_safety.sh.
TEST(Guard, AShortNameIsRefusedAndACopyIsNot) {
    dbtest::TempDir dir;
    const std::wstring source = dir.File(L"a long source name.vmdk");
    WriteWholeFile(source, "data");
    ProtectedFiles inputs;
    inputs.Add(source, L"the source disk");
    EXPECT_NO_THROW(inputs.CheckOutput(dir.File(L"new.img")));
    WriteWholeFile(dir.File(L"copy.img"), "data");
    EXPECT_NO_THROW(inputs.CheckOutput(dir.File(L"copy.img")));

    wchar_t shortName[MAX_PATH];
    const DWORD length = GetShortPathNameW(source.c_str(), shortName, MAX_PATH);
    if (length == 0 || length >= MAX_PATH || source == shortName)
        GTEST_SKIP() << "no short (8.3) names on this file system";
    EXPECT_TRUE(Holds(ErrorOf<Failure>([&] { inputs.CheckOutput(shortName); }), L"is the source disk"));
}

}  // namespace
