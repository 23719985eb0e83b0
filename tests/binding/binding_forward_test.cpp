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

// A stand-in that lacks one export: its binding refuses that call alone
// (logged by name, not traced, even with every trace bit set), every other
// method reaches the library once, and the destructor exits only a library
// whose table is complete. The mount binding ignores the log mask:
// CloseDiskSet alone is traced.
TEST_F(BindingTest, AMissingExportRefusesItsCallAloneAndKeepsItsLibrarysExit) {
    using dbtest::VddkVariant;
    const struct {
        VddkVariant variant;
        const char *missing;  // the refused entry point; null: none
        bool diskComplete, mountComplete;
    } cases[] = {
        {VddkVariant::Normal, nullptr, true, true},
        {VddkVariant::MissingExport, dbtest::kVddkMissingExport, false, true},
        {VddkVariant::NoGetOsInfo, "VixMntapi_GetOsInfo", true, false},
    };
    SetLogLevel(0xFFFFFFFF);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.missing ? c.missing : "complete");
        dbtest::TempDir root;
        std::string error;
        ASSERT_TRUE(dbtest::InstallVddkStandin(root.Path(), 0, c.variant, &error)) << error;
        auto disk = std::make_unique<vixDiskLibGlue>();
        auto mount = std::make_unique<vixMntapiGlue>();  // needs the disk library loaded
        ASSERT_TRUE(Attach(disk->moduleHandle.get()));
        EXPECT_EQ(disk->OK(), c.diskComplete);
        EXPECT_EQ(mount->initializeResult, 0);
        EXPECT_EQ(mount->OK(), c.mountComplete);

        // Every trace bit is set: one line per disk call, in call order.
        log.Clear();
        std::vector<SweepResult> calls = SweepDiskLib(*disk);
        const size_t diskCalls = calls.size();
        std::vector<std::wstring> expected;
        for (const SweepResult &call : calls)
            expected.push_back(c.missing && call.name == std::string(c.missing) ? Unresolved(L"vixDiskLibGlue", call.name)
                                                                                 : Api(Wide(call.name) + L"("));
        const std::vector<std::wstring> lines = log.Lines();
        ASSERT_EQ(lines.size(), expected.size());
        for (size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(lines[i].substr(0, expected[i].size()), expected[i]);
        log.Clear();
        for (const SweepResult &call : SweepMntapi(*mount)) calls.push_back(call);
        expected = {Api(L"VixMntapi_CloseDiskSet() ")};
        if (!c.mountComplete) expected.push_back(Unresolved(L"vixMntapiGlue", c.missing));
        EXPECT_EQ(log.Lines(), expected);
        for (size_t i = 0; i < calls.size(); ++i) {
            SCOPED_TRACE(calls[i].name);
            if (c.missing && calls[i].name == std::string(c.missing)) {
                EXPECT_EQ(calls[i].result, "0xFFFFFFFFE000FE4E");
            } else if (i < diskCalls || calls[i].result != "void") {  // the stand-in counts no Free/Exit of its own
                EXPECT_NE(calls[i].result, "0xFFFFFFFFE000FE4E");
                EXPECT_EQ(Calls(calls[i].name), 1u);
            }
        }

        const uint64_t diskExits = Calls("VixDiskLib_Exit"), mountExits = Calls("VixMntapi_Exit");
        mount.reset();
        disk.reset();
        EXPECT_EQ(Calls("VixDiskLib_Exit") - diskExits, c.diskComplete ? 1u : 0u);
        EXPECT_EQ(Calls("VixMntapi_Exit") - mountExits, c.mountComplete ? 1u : 0u);
        sim = dbtest::VddkSimControl();
        pinned.reset();
    }
}

}  // namespace
}  // namespace bindingtest
