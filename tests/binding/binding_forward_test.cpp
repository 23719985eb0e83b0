// Forwarding: an unresolved entry point refuses its own call alone
// (0xFFFFFFFFE000FE4E), every other call reaches the library, and the
// destructor exits a library only when its table is complete.
#include <memory>

#include "binding_call_sweep.h"
#include "binding_fixture.h"

namespace bindingtest {
namespace {

TEST_F(BindingTest, UnloadedBindingsRefuseEveryCall) {
    vixDiskLibGlue disk;
    vixMntapiGlue mount;
    for (const SweepResult &call : SweepDiskLib(disk)) EXPECT_EQ(call.result, RefusedResult(call.result)) << call.name;
    for (const SweepResult &call : SweepMntapi(mount)) EXPECT_EQ(call.result, RefusedResult(call.result)) << call.name;
}

// A stand-in that lacks one export: its binding refuses that call alone,
// every other method reaches the library once, and the destructor exits only
// a library whose table is complete.
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
        std::vector<SweepResult> calls = SweepDiskLib(*disk);
        const size_t diskCalls = calls.size();
        for (const SweepResult &call : SweepMntapi(*mount)) calls.push_back(call);
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
