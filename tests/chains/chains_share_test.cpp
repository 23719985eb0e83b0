// Remote parent mapping end to end on a share that Wine serves (share_env.sh):
// a child on \\dbchains\share whose parent lies on the same share is opened,
// its share mapped to a device name, its parent relinked through a connected
// drive, read equal to what qemu read, closed, and at Disconnect everything is
// put back. The network calls go through the service's seam: Wine has no
// network (its own calls fail, checked here too).
#include <dbtest/files.h>

#include "../service/service_fixture.h"

namespace servicetest {
namespace {

std::wstring Env(const wchar_t *name) {
    wchar_t value[1024] = {};
    const DWORD length = GetEnvironmentVariableW(name, value, 1024);
    return length > 0 && length < 1024 ? std::wstring(value) : std::wstring();
}

// The test's network: connections to the share get the drive share_env.sh made.
struct FakeNetwork {
    static inline std::wstring drive;
    static inline std::vector<std::wstring> connected;  // remote names asked for
    static inline std::vector<std::wstring> cancelled;  // drive names
    static DWORD WINAPI Use(HWND, LPNETRESOURCEW resource, LPCWSTR, LPCWSTR, DWORD flags, LPWSTR accessName,
                            LPDWORD accessNameChars, LPDWORD result) {
        connected.push_back(resource->lpRemoteName);
        const bool asSpecified = resource->dwScope == RESOURCE_GLOBALNET && resource->dwType == RESOURCETYPE_DISK &&
                                 resource->dwDisplayType == RESOURCEDISPLAYTYPE_SHARE &&
                                 resource->dwUsage == RESOURCEUSAGE_CONNECTABLE && !resource->lpLocalName &&
                                 flags == CONNECT_REDIRECT && *accessNameChars == 32;
        if (!asSpecified) return ERROR_INVALID_PARAMETER;
        accessName[drive.copy(accessName, *accessNameChars - 1)] = L'\0';
        *result = CONNECT_LOCALDRIVE;
        return NO_ERROR;
    }
    static DWORD WINAPI Cancel(LPCWSTR name, DWORD, BOOL) {
        cancelled.push_back(name);
        return NO_ERROR;
    }
};

std::wstring DeviceTarget(const wchar_t *name) {
    wchar_t target[1040] = {};
    return QueryDosDeviceW(name, target, 1040) ? std::wstring(target) : std::wstring();
}

class ShareTest : public ConnectedServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        share = Env(L"CHAINS_SHARE_LOCAL");
        unc = Env(L"CHAINS_SHARE_UNC");
        FakeNetwork::drive = Env(L"CHAINS_SHARE_DRIVE");
        if (share.empty() || unc.empty() || FakeNetwork::drive.empty())
            GTEST_SKIP() << "no Wine share: run through share_env.sh";
        // The mapping takes the first free device name; other programs in this
        // Wine prefix may hold some for a moment.
        for (wchar_t digit = L'1'; digit <= L'9' && name.empty(); ++digit)
            if (DeviceTarget((std::wstring(1, digit) + L":").c_str()).empty()) name = std::wstring(1, digit) + L":";
        ASSERT_FALSE(name.empty()) << "every device name is in use";
        FakeNetwork::connected.clear();
        FakeNetwork::cancelled.clear();
        StartService({L"", 0});
        service->UseNetworkCalls({&FakeNetwork::Use, &FakeNetwork::Cancel});
        // The children name their parent on the share, as a backup would leave them.
        ASSERT_TRUE(service->UpdateParentDiskLink(child(), parent()));
        ASSERT_TRUE(service->UpdateParentDiskLink(other(), parent()));
        log.Clear();
    }
    void TearDown() override {
        const bool started = service != nullptr;
        ConnectedServiceTest::TearDown();
        if (started) {
            EXPECT_EQ(DeviceTarget(name.c_str()), L"") << "the device name outlived the service";
        }
    }
    void Connect() {
        ASSERT_EQ(service->VixDiskLib_ConnectEx(&local, 0, nullptr, nullptr, &connection), VixError(VIX_OK));
    }
    void Disconnect() {
        EXPECT_EQ(service->VixDiskLib_Disconnect(connection, &local), VixError(VIX_OK));
        connection = nullptr;
    }
    std::wstring parent() const { return unc + L"\\IMG0001\\disk.vmdk"; }
    std::wstring child() const { return unc + L"\\folder\\disk-000001.vmdk"; }
    std::wstring other() const { return unc + L"\\other\\disk-000001.vmdk"; }
    std::wstring device(const std::wstring &disk) const { return name + disk.substr(unc.size()); }

    // Opens disk with VDDK's first answer scripted to 21, as a VDDK that cannot
    // reach the parent gives it.
    _vixReadWriteHandle *OpenAfterFailure(const std::wstring &disk) {
        sim.VddkSim_ScriptResult("VixDiskLib_Open", 1, 21, Utf8(disk).c_str(), VDDKSIM_ANY_SECTOR, VDDKSIM_ANY_SECTOR);
        _vixReadWriteHandle *handle = nullptr;
        wcstring mode;
        EXPECT_EQ(service->VixDiskLib_Open(connection, Utf8(disk).c_str(), 0, L"Read", &handle, mode),
                  VixError(VIX_OK));
        return handle;
    }
    std::string ReadAll(_vixReadWriteHandle *handle, size_t bytes) {
        std::string data(bytes, '\0');
        EXPECT_EQ(service->VixDiskLib_Read(handle, 0, bytes / 512, reinterpret_cast<uint8 *>(&data[0])),
                  VixError(VIX_OK));
        return data;
    }
    uint32_t DeviceReferences() {
        const std::vector<diskBrokerDeviceMapping> mappings = service->DeviceMappings();
        return mappings.empty() ? 0 : mappings.front().referenceCount;
    }

    std::wstring share;  // the share's own folder
    std::wstring unc;
    std::wstring name;  // the device name the share is expected to get
};

// Two children on one share: one device and one connected drive, counted per
// handle and per relinked descriptor; a Disconnect while a handle is open keeps
// them, the last one after the last close puts everything back.
TEST_F(ShareTest, ChildrenWithParentOnShareAreMappedReadAndPutBackAtTheLastDisconnect) {
    const std::wstring mapped = L"\\Device\\LanmanRedirector\\dbchains\\share\\";
    _vixReadWriteHandle *first = OpenAfterFailure(child());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(sim.LastArg("openPath"), Utf8(device(child()))) << "the retry opens the disk through the device";
    EXPECT_EQ(DeviceTarget(name.c_str()), mapped);
    ASSERT_EQ(service->DeviceMappings().size(), 1u);
    EXPECT_EQ(DeviceReferences(), 1u);
    EXPECT_EQ(FakeNetwork::connected, std::vector<std::wstring>{unc});
    EXPECT_EQ(service->GetParentDiskPath(child()), FakeNetwork::drive + L"\\IMG0001\\disk.vmdk");
    EXPECT_EQ(ReadAll(first, 8 << 20), dbtest::ReadWholeFile(share + L"\\expected.raw"))
        << "what qemu read from the chain";

    _vixReadWriteHandle *second = OpenAfterFailure(other());
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(service->DeviceMappings().size(), 1u) << "one device for one share";
    EXPECT_EQ(DeviceReferences(), 2u);
    ASSERT_EQ(service->ShareDrives().size(), 1u);
    EXPECT_EQ(service->ShareDrives().begin()->second.referenceCount, 2u) << "one per relinked descriptor";
    EXPECT_EQ(ReadAll(second, 8 << 20), dbtest::ReadWholeFile(share + L"\\other.raw"));

    EXPECT_EQ(service->VixDiskLib_Close(first), VixError(VIX_OK));
    EXPECT_EQ(DeviceReferences(), 1u);
    Disconnect();
    EXPECT_EQ(DeviceTarget(name.c_str()), mapped) << "still held by a handle";
    EXPECT_EQ(service->GetParentDiskPath(child()), FakeNetwork::drive + L"\\IMG0001\\disk.vmdk");

    Connect();
    EXPECT_EQ(service->VixDiskLib_Close(second), VixError(VIX_OK));
    EXPECT_EQ(DeviceReferences(), 0u);
    EXPECT_EQ(DeviceTarget(name.c_str()), mapped) << "kept until Disconnect";
    Disconnect();
    EXPECT_TRUE(service->DeviceMappings().empty());
    EXPECT_EQ(DeviceTarget(name.c_str()), L"");
    EXPECT_EQ(service->GetParentDiskPath(child()), parent()) << "the descriptors name the remote parent again";
    EXPECT_EQ(service->GetParentDiskPath(other()), parent());
    EXPECT_EQ(FakeNetwork::cancelled, std::vector<std::wstring>{FakeNetwork::drive})
        << "the connection goes with its last link";
    EXPECT_TRUE(service->ShareDrives().empty());
    EXPECT_EQ(sim.VddkSim_OpenHandleCount(), 0u);
}

// Three names on the share, the first failing with 21: all three rewritten
// from the first name's share, the retry made again, and the set's reference
// counted with the handles' until CloseDiskSet.
TEST_F(ShareTest, DiskSetOnTheShareIsRetriedThroughTheDevice) {
    ASSERT_EQ(service->VixMntapi_Init(VIXMNTAPI_MAJOR_VERSION, 0, nullptr, nullptr, nullptr, nullptr, nullptr),
              VixError(VIX_OK));
    _vixReadWriteHandle *handle = OpenAfterFailure(child());
    ASSERT_NE(handle, nullptr);

    const std::string names[] = {Utf8(other()), Utf8(parent()), Utf8(child())};
    const char *pointers[] = {names[0].c_str(), names[1].c_str(), names[2].c_str()};
    sim.ScriptResult("VixMntapi_OpenDisks", 1, 21);
    VixDiskSetHandle set = nullptr;
    ASSERT_EQ(service->VixMntapi_OpenDisks(connection, pointers, 3, VIXDISKLIB_FLAG_OPEN_READ_ONLY, &set),
              VixError(VIX_OK));
    EXPECT_EQ(Calls("VixMntapi_OpenDisks"), 2u);
    EXPECT_EQ(sim.LastArg("openPath"), Utf8(device(child()))) << "the third name, rewritten";
    EXPECT_EQ(Calls("VixDiskLib_Open"), 2u + 3u) << "the handle's two tries, then the set's three disks";
    EXPECT_EQ(DeviceReferences(), 2u) << "one handle and one set";
    EXPECT_EQ(service->GetParentDiskPath(other()), FakeNetwork::drive + L"\\IMG0001\\disk.vmdk");

    EXPECT_EQ(service->VixMntapi_CloseDiskSet(set), VixError(VIX_OK));
    EXPECT_EQ(DeviceReferences(), 1u);
    CloseDisk(handle);
    EXPECT_EQ(DeviceReferences(), 0u);
    Disconnect();
    EXPECT_EQ(DeviceTarget(name.c_str()), L"");
    EXPECT_EQ(service->GetParentDiskPath(other()), parent());
    EXPECT_EQ(service->GetParentDiskPath(child()), parent());
}

TEST_F(ShareTest, CreateOnTheShareRetriesThroughTheDeviceAndKeepsNoReference) {
    const std::wstring created = unc + L"\\folder\\created.vmdk";
    sim.VddkSim_ScriptResult("VixDiskLib_Create", 1, 21, Utf8(created).c_str(), VDDKSIM_ANY_SECTOR, VDDKSIM_ANY_SECTOR);
    VixDiskLibCreateParams create = {VIXDISKLIB_DISK_MONOLITHIC_SPARSE, VIXDISKLIB_ADAPTER_SCSI_LSILOGIC, 7, 2048, 512,
                                     512};
    EXPECT_EQ(service->VixDiskLib_Create(connection, Utf8(created).c_str(), &create, nullptr, nullptr), VixError(VIX_OK));
    EXPECT_EQ(Calls("VixDiskLib_Create"), 2u);
    EXPECT_NE(GetFileAttributesW((share + L"\\folder\\created.vmdk").c_str()), INVALID_FILE_ATTRIBUTES)
        << "created through the device, on the share";
    EXPECT_EQ(DeviceReferences(), 0u) << "no handle keeps a create's reference";
}

TEST_F(ShareTest, NoRetryWhenEveryDeviceNameIsTaken) {
    std::vector<std::wstring> taken;
    for (wchar_t digit = L'1'; digit <= L'9'; ++digit) {
        const std::wstring name = std::wstring(1, digit) + L":";
        if (!DeviceTarget(name.c_str()).empty()) continue;
        ASSERT_TRUE(DefineDosDeviceW(DDD_RAW_TARGET_PATH, name.c_str(), L"\\Device\\Elsewhere"));
        taken.push_back(name);
    }
    sim.VddkSim_ScriptResult("VixDiskLib_Open", 1, 21, Utf8(child()).c_str(), VDDKSIM_ANY_SECTOR, VDDKSIM_ANY_SECTOR);
    _vixReadWriteHandle *handle = nullptr;
    wcstring mode;
    const VixError result = service->VixDiskLib_Open(connection, Utf8(child()).c_str(), 0, L"Read", &handle, mode);
    for (const std::wstring &name : taken)
        DefineDosDeviceW(DDD_RAW_TARGET_PATH | DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE, name.c_str(),
                         L"\\Device\\Elsewhere");
    EXPECT_EQ(result, VixError(21));
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(Calls("VixDiskLib_Open"), 1u);
}

// Wine's own mpr.dll has no network: the relink fails for real, and the open
// would fall back to VDDK's first answer.
TEST_F(ShareTest, AFailedConnectionLeavesTheParentLinkAlone) {
    service->UseNetworkCalls({&WNetUseConnectionW, &WNetCancelConnection2W});
    EXPECT_FALSE(service->MapRemoteParentDiskPathToLocal(child()));
    EXPECT_EQ(service->GetParentDiskPath(child()), parent()) << "untouched";
}

}  // namespace
}  // namespace servicetest
