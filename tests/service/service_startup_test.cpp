// Start-up and shut-down of the service against the VDDK stand-in: settings,
// threading model, InitEx arguments and failure, Exit, the process-wide instance.
#include "service_fixture.h"

namespace servicetest {
namespace {

TEST_F(ServiceTest, ThreadingModelIsNoThreadingOnlyForExactlyThoseTwelveCharactersInAnyCase) {
    const struct {
        const wchar_t *text;
        uint32_t model;
    } cases[] = {{L"No Threading", 1}, {L"no threading ", 0}, {L"no thread", 0}, {L"", 0}};
    for (const auto &c : cases) {
        SCOPED_TRACE(::testing::Message() << "text '" << Utf8(c.text) << "'");
        SetThreadingModelText(c.text);
        auto service = Start();
        EXPECT_EQ(service->ThreadingModel(), c.model);
    }
}

TEST_F(ServiceTest, ReadWriteWorkersAreOffWithoutTheAgentKeyAndReadInTheWorkerModelOnly) {
    auto service = Start();
    EXPECT_EQ(service->ThreadingModel(), 0u);
    EXPECT_FALSE(service->UsesWorkerForReadWrite());
    EXPECT_EQ(Calls("VixDiskLib_InitEx"), 1u);
    service.reset();
    SetAgentDword(L"Use Worker thread for vixDiskLib read-write", 0x80000000);
    EXPECT_TRUE(Start()->UsesWorkerForReadWrite()) << "any non-zero DWORD turns it on";
    SetThreadingModelText(L"no threading");
    EXPECT_FALSE(Start()->UsesWorkerForReadWrite()) << "not read at all in the no-threading model";
}

// In both models: 1. InitEx gets libDir (the install folder, UTF-8) and the
// config file; 2. the callbacks are log, warning, panic in that order, each kind
// with its prefix; 3. Exit releases once, and neither a second Exit nor the
// destructor repeats it; 4. a failed InitEx keeps its error and text through the
// model's binding, and the file is deleted all the same.
TEST_F(ServiceTest, InitExCallbacksExitAndAFailedInitExInBothModels) {
    const std::string libDir = Utf8(install.Path() + L"\\VMware\\VixDiskLib\\");
    const VixError failure = VIX_E_DISK_SUBSYSTEM_INIT_FAIL;
    const std::wstring text = VddkErrorText(failure);
    ASSERT_FALSE(text.empty());
    for (const wchar_t *model : {L"", L"no threading"}) {
        SCOPED_TRACE(Utf8(model));
        SetThreadingModelText(model);
        sim.VddkSim_Reset();
        log.Clear();
        auto service = Start();
        EXPECT_EQ(sim.LastArg("libDir"), libDir);
        EXPECT_EQ(sim.LastArg("configFile"), Utf8(data.File(L"vddk-0.ini")));
        sim.VddkSim_TriggerLog(VDDKSIM_LOG, "plain");
        sim.VddkSim_TriggerLog(VDDKSIM_WARNING, "careful");
        sim.VddkSim_TriggerLog(VDDKSIM_PANIC, "doomed");
        EXPECT_TRUE(log.Contains(L"VDDK-Log: plain\n"));
        EXPECT_TRUE(log.Contains(L"VDDK-Warn: careful\n"));
        EXPECT_TRUE(log.Contains(L"VDDK-Panic: doomed\n"));
        EXPECT_EQ(DrainCachedLog(*service), L"VDDK-Warn: careful\n\nVDDK-Panic: doomed\n\n");

        service->VixDiskLib_Exit();
        EXPECT_EQ(Calls("VixDiskLib_Exit"), 1u) << "the service's Exit; the binding's destructor does not repeat it";
        service->VixDiskLib_Exit();
        service.reset();
        EXPECT_EQ(Calls("VixDiskLib_Exit"), 1u) << "a second Exit and the destructor find nothing to release";
        EXPECT_EQ(sim.VddkSim_BackgroundThreadId(), 0u);

        sim.ScriptResult("VixDiskLib_InitEx", 1, failure);
        service = Start();
        EXPECT_EQ(service->LastError(), failure);
        EXPECT_EQ(service->LastErrorText(), text);
        EXPECT_EQ(GetFileAttributesW(data.File(L"vddk-0.ini").c_str()), INVALID_FILE_ATTRIBUTES)
            << "deleted after a failed InitEx too";
    }
}

TEST_F(ServiceTest, GetInstanceConstructsOnceUntilReleased) {
    auto first = diskBroker::GetInstance();
    auto second = diskBroker::GetInstance();
    ASSERT_TRUE(first);
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(Calls("VixDiskLib_InitEx"), 1u);
    first.reset();
    second.reset();
    diskBroker::ReleaseInstance();
    EXPECT_EQ(Calls("VixDiskLib_Exit"), 1u) << "released by the last holder";
}

// Each product reads its own settings tree and its own VDDK install key. (The
// base library reports only 0 or 1, so the mixed case of a product value 2 or
// more cannot arise through it.)
class ProductTreeTest : public ServiceTest, public ::testing::WithParamInterface<int> {
protected:
    void SetUp() override { SetUpFor(GetParam()); }
};

TEST_P(ProductTreeTest, SettingsAndInstallKeysFollowTheirOwnProductTests) {
    const int product = GetParam();
    ASSERT_EQ(registry.SetString(product == 1 ? kSiblingAgentKey : kMainAgentKey, L"vixDiskLib Threading Model",
                                 L"no threading"),
              ERROR_SUCCESS);
    ASSERT_EQ(registry.SetString(product == 1 ? kMainAgentKey : kSiblingAgentKey, L"vixDiskLib Threading Model",
                                 L"worker"),
              ERROR_SUCCESS);
    auto service = Start();
    EXPECT_EQ(service->ThreadingModel(), 1u);
    EXPECT_EQ(sim.LastArg("libDir"),
              Utf8(install.Path() + (product == 0 ? L"\\VMware\\VixDiskLib\\" : L"\\Shared\\VDDK\\")));
    EXPECT_EQ(sim.LastArg("configFile"), Utf8(data.File(L"vddk-0.ini")));
}

INSTANTIATE_TEST_SUITE_P(Products, ProductTreeTest, ::testing::Values(0, 1));

}  // namespace
}  // namespace servicetest
