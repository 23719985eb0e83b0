// Forwarding: an unresolved entry point refuses its own call alone (logged
// by name, 0xFFFFFFFFE000FE4E), every other call reaches the library, and the
// destructor exits a library only when its table is complete.
#include <memory>

#include "binding_call_sweep.h"
#include "binding_fixture.h"

namespace bindingtest {
namespace {

std::wstring Unresolved(const wchar_t *glue, const std::string &printedName) {
    return std::wstring(glue) + L": Uninitialized function pointer for: " + Wide(printedName) + L". ";
}

// The mount binding reports these two under the names the product always printed.
std::string MountPrintedName(const std::string &name) {
    return name == "VixMntapi_OpenDisks" || name == "VixMntapi_GetDiskSetInfo" ? "m_" + name : name;
}

#define BINDINGTEST_COUNT_NULL(name, ret, params, args) nulls += table.name == nullptr;
int NullPointers(const vixDiskLibGlue::FunctionTable &table) {
    int nulls = 0;
    VDDK_DISKLIB_ENTRY_POINTS(BINDINGTEST_COUNT_NULL)
    return nulls;
}
int NullPointers(const vixMntapiGlue::FunctionTable &table) {
    int nulls = 0;
    VDDK_MNTAPI_ENTRY_POINTS(BINDINGTEST_COUNT_NULL)
    return nulls;
}
#undef BINDINGTEST_COUNT_NULL

// A binding whose load failed shows every name it refuses, in table order.
TEST_F(BindingTest, UnloadedBindingsRefuseEveryCallAndLogItsName) {
    vixDiskLibGlue disk;
    vixMntapiGlue mount;
    log.Clear();
    std::vector<std::wstring> expected;
    for (const SweepResult &call : SweepDiskLib(disk)) {
        EXPECT_EQ(call.result, RefusedResult(call.result)) << call.name;
        expected.push_back(Unresolved(L"vixDiskLibGlue", call.name));
    }
    for (const SweepResult &call : SweepMntapi(mount)) {
        EXPECT_EQ(call.result, RefusedResult(call.result)) << call.name;
        expected.push_back(Unresolved(L"vixMntapiGlue", MountPrintedName(call.name)));
    }
    EXPECT_EQ(log.Lines(), expected);

    // A refused read keeps no statistics.
    _vixReadWriteStats stats;
    stats.kind = _vixReadWriteStats::kRead;
    EXPECT_EQ(disk.VixDiskLib_Read(nullptr, 7, 8, nullptr, &stats), kVixUnresolvedEntryPoint);
    EXPECT_EQ(stats.operationCount, 0u);
    EXPECT_EQ(stats.extentStart, 0u);
}

// Every other method reaches the stand-in (counted there) and nothing else is refused.
TEST_F(BindingTest, DiskLibWithoutAttachRefusesAttachAlone) {
    Install(0, dbtest::VddkVariant::MissingExport);
    vixDiskLibGlue disk;
    ASSERT_TRUE(Attach(disk.moduleHandle.get()));
    EXPECT_FALSE(disk.OK());
    EXPECT_EQ(NullPointers(disk.functions), 1);
    EXPECT_EQ(disk.functions.VixDiskLib_Attach, nullptr);
    log.Clear();
    for (const SweepResult &call : SweepDiskLib(disk)) {
        SCOPED_TRACE(call.name);
        if (call.name == std::string(dbtest::kVddkMissingExport)) {
            EXPECT_EQ(call.result, "0xFFFFFFFFE000FE4E");
        } else {
            EXPECT_NE(call.result, "0xFFFFFFFFE000FE4E");
            EXPECT_EQ(Calls(call.name), 1u);
        }
    }
    size_t refusals = 0;
    for (const std::wstring &line : log.Lines()) refusals += line.find(L"Uninitialized") != std::wstring::npos;
    EXPECT_EQ(refusals, 1u);
    EXPECT_EQ(log.Count(Unresolved(L"vixDiskLibGlue", "VixDiskLib_Attach")), 1u);
    EXPECT_EQ(log.Count(Api(L"VixDiskLib_Attach()")), 0u) << "a refused call is not traced";
}

// The mount binding ignores the log mask: CloseDiskSet alone is traced.
TEST_F(BindingTest, MountLibWithoutGetOsInfoRefusesGetOsInfoAloneAndTracesOnlyCloseDiskSet) {
    Install(0, dbtest::VddkVariant::NoGetOsInfo);
    SetLogLevel(0xFFFFFFFF);
    vixDiskLibGlue disk;  // the mount library needs the disk library loaded
    ASSERT_TRUE(disk.OK());
    ASSERT_TRUE(Attach(disk.moduleHandle.get()));
    vixMntapiGlue mount;
    EXPECT_EQ(mount.initializeResult, 0);
    EXPECT_FALSE(mount.OK());
    EXPECT_EQ(NullPointers(mount.functions), 1);
    log.Clear();
    for (const SweepResult &call : SweepMntapi(mount)) {
        SCOPED_TRACE(call.name);
        if (call.name == std::string("VixMntapi_GetOsInfo")) {
            EXPECT_EQ(call.result, "0xFFFFFFFFE000FE4E");
        } else if (call.result != "void") {  // the stand-in counts no Free/Exit of its own
            EXPECT_NE(call.result, "0xFFFFFFFFE000FE4E");
            EXPECT_EQ(Calls(call.name), 1u);
        }
    }
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{Api(L"VixMntapi_CloseDiskSet() "),
                                                      Unresolved(L"vixMntapiGlue", "VixMntapi_GetOsInfo")}));
}

TEST_F(BindingTest, DestructorsExitOnlyALibraryWhoseTableIsComplete) {
    for (const auto variant : {dbtest::VddkVariant::Normal, dbtest::VddkVariant::MissingExport,
                               dbtest::VddkVariant::NoGetOsInfo}) {
        SCOPED_TRACE(static_cast<int>(variant));
        dbtest::TempDir root;
        std::string error;
        ASSERT_TRUE(dbtest::InstallVddkStandin(root.Path(), 0, variant, &error)) << error;
        auto disk = std::make_unique<vixDiskLibGlue>();
        auto mount = std::make_unique<vixMntapiGlue>();
        ASSERT_TRUE(Attach(disk->moduleHandle.get()));
        mount.reset();
        disk.reset();
        EXPECT_EQ(Calls("VixDiskLib_Exit"), variant == dbtest::VddkVariant::MissingExport ? 0u : 1u);
        EXPECT_EQ(Calls("VixMntapi_Exit"), variant == dbtest::VddkVariant::NoGetOsInfo ? 0u : 1u);
        sim = dbtest::VddkSimControl();
        pinned.reset();
    }
}

}  // namespace
}  // namespace bindingtest
