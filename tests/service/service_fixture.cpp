#include "service_fixture.h"

#include <string.h>

#include <vddksim.h>
#include <skclass_mini/dawdle.h>
#include <skstdutl/sklog.h>

namespace servicetest {

std::string Utf8(const std::wstring &wide) { return cstring::ToUtf8(wide); }
std::wstring Wide(const std::string &utf8) { return wcstring::FromUtf8(utf8.c_str(), utf8.size()); }

void ServiceTest::SetUpFor(int product) {
    SK_SetLogFilePath(L"");  // no log file: it would stay open inside our folders
    ASSERT_TRUE(registry.Ok()) << registry.Error();
    ASSERT_FALSE(install.Path().empty());
    ASSERT_FALSE(data.Path().empty());
    if (product != 0) {
        ASSERT_EQ(registry.SetDword(kProductKey, L"Product", DWORD(product)), ERROR_SUCCESS);
    }
    std::string error;
    ASSERT_TRUE(dbtest::InstallVddkStandin(install.Path(), product, dbtest::VddkVariant::Normal, &error)) << error;
    ASSERT_EQ(registry.SetString(product == 1 ? kSiblingMiscKey : kMainMiscKey, L"Data Path", data.Path()),
              ERROR_SUCCESS);
    const std::wstring dll = dbtest::VddkStandinInstallFolder(install.Path(), product) + L"vixDiskLib.dll";
    standin.reset(LoadLibraryW(dll.c_str()));
    ASSERT_TRUE(standin) << "LoadLibraryW failed: " << GetLastError();
    ASSERT_TRUE(sim.Load(standin.get()));
    ASSERT_EQ(vddk.Load(standin.get()), 33);
    sim.VddkSim_Reset();
    skclass::SetTimeScale(0);
    skclass::ResetDawdleRequested();
}

void ServiceTest::TearDown() {
    skclass::SetTimeScale(1.0);
    if (sim.VddkSim_Reset) sim.VddkSim_Reset();
}

std::wstring ServiceTest::VddkErrorText(VixError error) const {
    char *text = vddk.VixDiskLib_GetErrorText(error, nullptr);
    std::wstring wide = text ? Wide(text) : std::wstring();
    vddk.VixDiskLib_FreeErrorText(text);
    return wide;
}

std::string ModelName(const ::testing::TestParamInfo<Model> &info) {
    return std::string(info.param.threadingText[0] ? "NoThreading" : "Worker") +
           (info.param.workerForReadWrite ? "WithHandleWorkers" : "");
}

const std::vector<Model> &AllModels() {
    static const std::vector<Model> models{
        Model{L"", 0}, Model{L"", 1}, Model{L"no threading", 0}, Model{L"no threading", 1}};
    return models;
}

void ConnectedServiceTest::StartService(const Model &model) {
    SetThreadingModelText(model.threadingText);
    SetAgentDword(L"Use Worker thread for vixDiskLib read-write", model.workerForReadWrite);
    service = Start();
    ASSERT_EQ(service->VixDiskLib_ConnectEx(&local, 0, nullptr, nullptr, &connection), VixError(VIX_OK));
    log.Clear();
}

void ConnectedServiceTest::TearDown() {
    if (connection) service->VixDiskLib_Disconnect(connection, &local);
    service.reset();
    ServiceTest::TearDown();
}

_vixReadWriteHandle *ConnectedServiceTest::OpenDisk(const std::string &path, const wchar_t *tag) {
    _vixReadWriteHandle *handle = nullptr;
    wcstring mode;
    EXPECT_EQ(service->VixDiskLib_Open(connection, path.c_str(), 0, tag, &handle, mode), VixError(VIX_OK)) << path;
    return handle;
}

VixError ConnectedServiceTest::CloseDisk(_vixReadWriteHandle *handle) {
    const VixError result = service->VixDiskLib_Close(handle);
    EXPECT_EQ(result, VixError(VIX_OK));
    if (service->ThreadingModel() == diskBroker::kNoThreadingModel) delete handle;
    return result;
}

std::vector<uint8_t> PatternBytes(uint64_t seed, uint64_t first, uint64_t count) {
    std::vector<uint8_t> bytes(static_cast<size_t>(count * 512));
    for (size_t word = 0; word < bytes.size() / 8; ++word) {
        const uint64_t value = VddkSimPatternWord(seed, first * 64 + word);
        memcpy(&bytes[word * 8], &value, 8);
    }
    return bytes;
}

std::wstring ServiceTest::DrainCachedLog(diskBroker &service) {
    wcstring taken;
    service.GetCachedVDDKlog(&taken);
    return taken;
}

}  // namespace servicetest
