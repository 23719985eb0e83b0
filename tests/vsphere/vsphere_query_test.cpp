// VM queries: change tracking, the guest's host name with its power-state and
// physical-mode rules, the information documents, and the host list.
#include <dbtest/files.h>

#include "vsphere_fixture.h"

namespace vspheretest {
namespace {

class QueryTest : public ConnectedTest {
protected:
    uint32_t Fqdn(const wcstring &vm) { return vddkGetVmFQDN(vm, fqdn, wrapper, session); }
    wcstring fqdn;
};

TEST_F(QueryTest, ChangeTrackingIsEnabledOnceAndNeverFails) {
    EXPECT_EQ(vddkEnableChangeTracking(kVm, wrapper, session), dbresult::kOk);
    EXPECT_EQ(sim.Query("changeTracking:web01"), "1");
    log.Clear();
    EXPECT_EQ(vddkEnableChangeTracking(kVm, wrapper, session), dbresult::kOk);
    EXPECT_TRUE(log.Lines().empty()) << "enabled already: nothing to do";

    EXPECT_EQ(vddkEnableChangeTracking(L"no-such-vm", wrapper, session), dbresult::kOk);
    LoadInventory("<inventory><vm name='web01'/></inventory>");
    sim.Script("vmcSetVmPowerOrConfigState", {6});
    EXPECT_EQ(vddkEnableChangeTracking(kVm, wrapper, session), dbresult::kOk);
    EXPECT_TRUE(log.Contains(L"vddkEnableChangeTracking() Failed to enable change tracking for the VM 'web01'"));
}

TEST_F(QueryTest, FqdnNeedsPoweredOnButTheNameIsFilledAnyway) {
    EXPECT_EQ(Fqdn(kVm), dbresult::kOk);
    EXPECT_EQ(fqdn, L"web01.example.com");
    EXPECT_TRUE(JournalHas("(web01, (null), (null), DataSet1)"));
    EXPECT_TRUE(JournalHas("(web01, (null), (null), DataSet2b)"));

    LoadInventory("<inventory>"
                  "<vm name='off' powerState='poweredOff' guestHostName='off.example'/>"
                  "<vm name='raw' diskMode='persistent,physicalMode' guestHostName='raw.example'/>"
                  "</inventory>");
    EXPECT_EQ(Fqdn(L"off"), dbresult::kVmNotPoweredOn);
    EXPECT_EQ(fqdn, L"off.example");
    EXPECT_EQ(Fqdn(L"raw"), dbresult::kVmHasPhysicalModeDisk);
    EXPECT_EQ(fqdn, L"raw.example");
}

TEST_F(QueryTest, FqdnFailures) {
    sim.Script("vmcGetObjDetails", {RAVELSIM_REAL, 7});  // the first query runs, the second fails
    EXPECT_EQ(Fqdn(kVm), dbresult::kObjectDetailsUnreadable);
    EXPECT_EQ(fqdn, L"web01.example.com") << "a powered-on VM's name is filled before the second query";
}

// Each document is written where the caller says, for the object it names.
TEST_F(QueryTest, BackupAndObjectInformationDocuments) {
    const std::wstring file = data.File(L"backup-info.xml"), objects = data.File(L"objects.xml");
    EXPECT_EQ(vddkGetVmBackupInfo(kVm, file, wrapper, session), dbresult::kOk);
    EXPECT_NE(dbtest::ReadWholeFile(file).find("<VmBackupInfo name=\"web01\" moRef=\"vm-42\""), std::string::npos);
    EXPECT_EQ(vddkGetManagedObjInfo(L"root", L"host", L"", objects, wrapper, session), dbresult::kOk);
    EXPECT_NE(dbtest::ReadWholeFile(objects).find("<HostSystem name=\"esx-01.example\" moRef=\"host-12\""),
              std::string::npos);

    EXPECT_EQ(vddkGetVmBackupInfo(L"no-such-vm", file, wrapper, session), dbresult::kInfoDocumentFailed);
    EXPECT_EQ(vddkGetManagedObjInfo(L"root", L"vm_3", L"", L"Q:\\no\\such\\folder\\x.xml", wrapper, session),
              dbresult::kInfoDocumentFailed);
}

// A failure leaves the caller's list, a success replaces it. (Names and
// versions: the hosts command in vm_backup_cli.sh.)
TEST_F(QueryTest, HostListReplacedOnlyOnSuccess) {
    std::vector<vddkHostInfo> hosts(3);
    hosts[0].name = L"kept";
    EXPECT_EQ(vddkGetAllHosts(&hosts, wrapper, nullptr), dbresult::kHostListFailed);
    EXPECT_EQ(hosts.size(), 3u);
    EXPECT_EQ(hosts[0].name, L"kept");
    LoadInventory("<inventory/>");
    EXPECT_EQ(vddkGetAllHosts(&hosts, wrapper, session), dbresult::kOk);
    EXPECT_TRUE(hosts.empty());
    EXPECT_EQ(vddkGetAllHosts(nullptr, wrapper, session), dbresult::kNullArgument);
}

}  // namespace
}  // namespace vspheretest
