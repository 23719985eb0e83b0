// The VDDK configuration file: its name, content, the administrator's own file,
// preservation and deletion, as the stand-in reads it at InitEx.
#include <skstdutl/sklog.h>

#include <dbtest/files.h>

#include "service_fixture.h"

namespace servicetest {
namespace {

bool Exists(const std::wstring &path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

std::string DefaultContent(const std::wstring &dataDirectory, unsigned timeout = 1800000, unsigned level = 6) {
    return "vixDiskLib.nfcFssrvr.TimeoutMs = \"" + std::to_string(timeout) + "\"\r\n" +
           "vixDiskLib.transport.LogLevel = \"" + std::to_string(level) + "\"\r\n" + "tmpDirectory = \"" +
           Utf8(dataDirectory) + "\\VMwareTemp\"\r\n";
}

TEST_F(ServiceTest, DefaultFileHoldsThreeLinesTakesTheFirstFreeNameAndIsGoneAfterInitEx) {
    auto service = Start();
    const std::wstring file = data.File(L"vddk-0.ini");
    EXPECT_EQ(sim.LastArg("configFile"), Utf8(file));
    EXPECT_EQ(sim.LastArg("configContent"), DefaultContent(data.Path()));
    EXPECT_TRUE(Exists(data.File(L"VMwareTemp")));
    EXPECT_FALSE(Exists(file));

    // Names that exist are left alone.
    ASSERT_TRUE(dbtest::WriteWholeFile(data.File(L"vddk-0.ini"), "zero"));
    ASSERT_TRUE(dbtest::WriteWholeFile(data.File(L"vddk-1.ini"), "one"));
    service.reset();
    service = Start();
    EXPECT_EQ(sim.LastArg("configFile"), Utf8(data.File(L"vddk-2.ini")));
    EXPECT_EQ(dbtest::ReadWholeFile(data.File(L"vddk-0.ini")), "zero");
    EXPECT_EQ(dbtest::ReadWholeFile(data.File(L"vddk-1.ini")), "one");
    EXPECT_FALSE(Exists(data.File(L"vddk-2.ini")));
}

TEST_F(ServiceTest, RegistryValuesGoIntoTheFileAndTrailingBackslashesAreDropped) {
    ASSERT_EQ(registry.SetString(kMainMiscKey, L"Data Path", data.Path() + L"\\\\\\"), ERROR_SUCCESS);
    SetAgentDword(L"vixDiskLib.nfcFssrvr.TimeoutMs", 60000);
    SetAgentDword(L"vixDiskLib.transport.LogLevel", 2);
    auto service = Start();
    EXPECT_EQ(sim.LastArg("configFile"), Utf8(data.File(L"vddk-0.ini")));
    EXPECT_EQ(sim.LastArg("configContent"), DefaultContent(data.Path(), 60000, 2));
}

TEST_F(ServiceTest, AUserFileIsUsedAndNeverDeletedAndAMissingOneFallsBackToTheNextCounter) {
    const std::wstring userFile = data.File(L"mine.ini");
    SetAgentString(L"vixDiskLib.config.file", userFile);
    auto service = Start();
    EXPECT_EQ(sim.LastArg("configFile"), Utf8(data.File(L"vddk-1.ini")));
    EXPECT_EQ(sim.LastArg("configContent"), DefaultContent(data.Path()));
    EXPECT_FALSE(Exists(data.File(L"vddk-1.ini")));

    ASSERT_TRUE(dbtest::WriteWholeFile(userFile, "vixDiskLib.transport.LogLevel = \"1\"\r\n"));
    service.reset();
    service = Start();
    EXPECT_EQ(sim.LastArg("configFile"), Utf8(userFile));
    EXPECT_EQ(sim.LastArg("configContent"), "vixDiskLib.transport.LogLevel = \"1\"\r\n");
    EXPECT_TRUE(service->PreservesIniFile());
    service.reset();
    EXPECT_TRUE(Exists(userFile));
    EXPECT_FALSE(Exists(data.File(L"vddk-0.ini")));
}

TEST_F(ServiceTest, PreserveSettingKeepsTheDefaultFile) {
    SetAgentDword(L"Preserve vddk ini file", 1);
    auto service = Start();
    EXPECT_TRUE(service->PreservesIniFile());
    EXPECT_EQ(dbtest::ReadWholeFile(data.File(L"vddk-0.ini")), DefaultContent(data.Path()));
}

// Without a "Misc" key the file goes to the root of the current drive.
TEST_F(ServiceTest, AMissingMiscKeyMeansTheCurrentDrive) {
    wchar_t previous[MAX_PATH];
    ASSERT_NE(GetCurrentDirectoryW(MAX_PATH, previous), 0u);
    ASSERT_TRUE(SetCurrentDirectoryW(data.Path().c_str()));  // a writable drive
    ASSERT_EQ(registry.DeleteValue(kMainMiscKey, L"Data Path"), ERROR_SUCCESS);
    ASSERT_EQ(RegDeleteKeyW(HKEY_LOCAL_MACHINE, kMainMiscKey), ERROR_SUCCESS);
    auto service = Start();
    const std::string root = sim.LastArg("configFile");
    EXPECT_EQ(root.rfind("\\vddk-", 0), 0u) << root;
    EXPECT_EQ(sim.LastArg("configContent"), DefaultContent(L""));
    EXPECT_FALSE(Exists(Wide(root)));
    SetCurrentDirectoryW(previous);
}

// A data folder that takes no file: the search for a name gives up, VDDK
// starts without a configuration file, and the service still serves disks.
TEST_F(ServiceTest, AFolderThatTakesNoFileStartsVddkWithoutOne) {
    const std::wstring missing = data.File(L"no such folder");
    ASSERT_EQ(registry.SetString(kMainMiscKey, L"Data Path", missing), ERROR_SUCCESS);
    auto service = Start();
    EXPECT_EQ(Calls("VixDiskLib_InitEx"), 1u);
    EXPECT_EQ(sim.LastArg("configFile"), "");
    VixDiskLibConnectParams local{};
    VixDiskLibConnection connection = nullptr;
    ASSERT_EQ(service->VixDiskLib_ConnectEx(&local, 0, nullptr, nullptr, &connection), VixError(VIX_OK));
    _vixReadWriteHandle *handle = nullptr;
    wcstring mode;
    ASSERT_EQ(service->VixDiskLib_Open(connection, "memdisk://usable?size=4096", 0, L"Read", &handle, mode),
              VixError(VIX_OK));
    uint8 sector[512];
    EXPECT_EQ(service->VixDiskLib_Read(handle, 0, 1, sector), VixError(VIX_OK));
    EXPECT_EQ(service->VixDiskLib_Close(handle), VixError(VIX_OK));
    EXPECT_EQ(service->VixDiskLib_Disconnect(connection, &local), VixError(VIX_OK));
}

// Holds the config file open (no delete sharing) from the moment the service
// names it, so the service's DeleteFileW fails.
struct IniFileHolder {
    skclass::UniqueFile file;
    int sink = 0;
    IniFileHolder() { sink = SK_AddLogSink(&OnLine, this); }
    ~IniFileHolder() { SK_RemoveLogSink(sink); }
    static void OnLine(void *self, const SK_LogRecord *record) {
        const std::wstring text = record->text, head = L"diskBroker::createVDDkIniFile() using the ini file ";
        if (text.rfind(head, 0) != 0) return;
        const std::wstring path = text.substr(head.size(), text.size() - head.size() - 19);
        static_cast<IniFileHolder *>(self)->file.reset(
            CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                        nullptr));
    }
};

TEST_F(ServiceTest, UndeletableFileIsReportedUnderItsHistoricName) {
    IniFileHolder holder;
    auto service = Start();
    ASSERT_TRUE(holder.file) << "the holder did not catch the file";
    EXPECT_TRUE(log.Contains(L"diskBroker::VixMntapi_Init() Could not delete the file " + data.File(L"vddk-0.ini") +
                             L"(0x20) "));
}

}  // namespace
}  // namespace servicetest
