// Trace lines of the disk library binding: which calls trace always and which
// only under bit 0x20 of "VMware Agent debug log level", their exact texts,
// and the mask read again by Connect and ConnectEx.

#include "binding_call_sweep.h"
#include "binding_fixture.h"

namespace bindingtest {
namespace {

constexpr DWORD kTraceBit = 0x20;

// The calls whose line does not depend on bit 0x20.
const char *const kAlwaysTraced[] = {"VixDiskLib_ConnectEx", "VixDiskLib_Disconnect",       "VixDiskLib_Open",
                                     "VixDiskLib_Close",     "VixDiskLib_PrepareForAccess", "VixDiskLib_EndAccess",
                                     "VixDiskLib_Attach"};

bool AlwaysTraced(const std::string &name) {
    for (const char *always : kAlwaysTraced)
        if (name == always) return true;
    return false;
}

// Every bit but 0x20 turns no masked line on: only the calls that always
// trace print their line, in call order. That 0x20 turns every masked line on
// is checked where every bit is set (AMissingExportRefusesItsCallAlone...) and
// where 0x20 alone is (TraceLinesPrintTheirArguments).
TEST_F(BindingTest, EveryBitBut0x20LeavesOnlyTheAlwaysTracedLines) {
    Install();
    SetLogLevel(~kTraceBit);
    vixDiskLibGlue disk;
    ASSERT_TRUE(disk.OK());
    log.Clear();
    std::vector<std::wstring> expected;
    for (const SweepResult &call : SweepDiskLib(disk))
        if (AlwaysTraced(call.name)) expected.push_back(Api(wcstring::FromUtf8(call.name) + L"("));
    const std::vector<std::wstring> lines = log.Lines();
    ASSERT_EQ(lines.size(), expected.size());
    for (size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(lines[i].substr(0, expected[i].size()), expected[i]);
}

// The arguments of the lines that print them: UTF-8 texts decoded; read
// numbers in decimal after "0x", write numbers without "0x"; Open's line
// after the call (the new handle), Close's before.
TEST_F(BindingTest, TraceLinesPrintTheirArguments) {
    Install();
    SetLogLevel(kTraceBit);
    vixDiskLibGlue disk;
    ASSERT_TRUE(disk.OK());
    log.Clear();
    ASSERT_EQ(disk.VixDiskLib_InitEx(8, 1, nullptr, nullptr, nullptr, u8"C:\\vddk\\d\u00e9j\u00e0", nullptr), VIX_OK);
    ASSERT_EQ(disk.VixDiskLib_Init(7, 2, nullptr, nullptr, nullptr, "C:\\lib"), VIX_OK);
    VixDiskLibConnection connection = nullptr;
    ASSERT_EQ(disk.VixDiskLib_Connect(nullptr, &connection), VIX_OK);
    VixDiskLibHandle handle = nullptr;
    ASSERT_EQ(disk.VixDiskLib_Open(connection, u8"memdisk://\u00e9t\u00e9?size=1048576", 0, &handle), VIX_OK);
    uint8 buffer[1024] = {};
    EXPECT_EQ(disk.VixDiskLib_Read(handle, 1000, 2, buffer), VIX_OK);
    EXPECT_EQ(disk.VixDiskLib_Write(handle, 1000, 2, buffer), VIX_OK);
    EXPECT_EQ(disk.VixDiskLib_Close(handle), VIX_OK);
    EXPECT_EQ(disk.VixDiskLib_Disconnect(connection), VIX_OK);
    EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{
                               Api(L"VixDiskLib_InitEx( 8, 1, C:\\vddk\\d\u00e9j\u00e0 ) "),
                               Api(L"VixDiskLib_Init( 7, 2, C:\\lib ) "),
                               Api(L"VixDiskLib_Connect() "),
                               Api(L"VixDiskLib_Open(memdisk://\u00e9t\u00e9?size=1048576, 0 (0x" + Padded(handle) +
                                   L") ) "),
                               Api(L"VixDiskLib_Read((0x00001000), (0x00000002))"),
                               Api(L"VixDiskLib_Write((00001000), (00000002))"),
                               Api(L"VixDiskLib_Close(0x" + Padded(handle) + L")"),
                               Api(L"VixDiskLib_Disconnect('0x" + Padded(connection) + L"') "),
                           }));
}

// 1. The mask is read at construction and again by Connect and ConnectEx only.
// 2. ConnectEx, PrepareForAccess and EndAccess name the server only when
//    vmxSpec is set, whatever serverName holds.
TEST_F(BindingTest, ConnectsReadTheMaskAgainAndNameTheServerOnlyWithVmxSpec) {
    Install();
    vixDiskLibGlue disk;
    ASSERT_TRUE(disk.OK());
    ASSERT_EQ(disk.VixDiskLib_InitEx(8, 0, nullptr, nullptr, nullptr, nullptr, nullptr), VIX_OK);
    const std::wstring modesLine = Api(L"VixDiskLib_ListTransportModes() ");
    VixDiskLibConnection connection = nullptr;

    SetLogLevel(kTraceBit);
    disk.VixDiskLib_ListTransportModes();
    EXPECT_EQ(log.Count(modesLine), 0u) << "the new mask is not read by other calls";
    ASSERT_EQ(disk.VixDiskLib_Connect(nullptr, &connection), VIX_OK);
    EXPECT_TRUE(log.Contains(Api(L"VixDiskLib_Connect() "))) << "read before Connect's own line";
    disk.VixDiskLib_ListTransportModes();
    EXPECT_EQ(log.Count(modesLine), 1u);
    disk.VixDiskLib_Disconnect(connection);

    SetLogLevel(0);
    ASSERT_EQ(disk.VixDiskLib_ConnectEx(nullptr, 1, nullptr, nullptr, &connection), VIX_OK);
    disk.VixDiskLib_ListTransportModes();
    EXPECT_EQ(log.Count(modesLine), 1u) << "ConnectEx turned the masked lines off again";
    disk.VixDiskLib_Disconnect(connection);

    const struct {
        const char *vmxSpec;
        const char *serverName;
        const wchar_t *printed;
    } cases[] = {
        {nullptr, "vcenter.example", L"Local Server"},
        {"moref=vm-42", u8"vcenter-\u00f6st.example", L"vcenter-\u00f6st.example"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.serverName);
        VixDiskLibConnectParams params{};
        params.vmxSpec = const_cast<char *>(c.vmxSpec);
        params.serverName = const_cast<char *>(c.serverName);
        log.Clear();
        ASSERT_EQ(disk.VixDiskLib_ConnectEx(&params, 1, nullptr, nullptr, &connection), VIX_OK);
        disk.VixDiskLib_PrepareForAccess(&params, "diskBroker");
        disk.VixDiskLib_EndAccess(&params, "diskBroker");
        const std::wstring server = c.printed;
        EXPECT_EQ(log.Lines(), (std::vector<std::wstring>{
                                   Api(L"VixDiskLib_ConnectEx('" + server + L"'- '0x" + Padded(connection) + L"' ) "),
                                   Api(L"VixDiskLib_PrepareForAccess('" + server + L"') "),
                                   Api(L"VixDiskLib_EndAccess('" + server + L"') "),
                               }));
        disk.VixDiskLib_Disconnect(connection);
    }
}

}  // namespace
}  // namespace bindingtest
