// The fault matrix, continued: each VDDK entry point a job calls outside a cache
// pass (connections, access preparation, disk handles) x {fails once, fails
// always, takes 200 ms}, in every threading model. Each combination ends with
// the result promised for it, hands out no connection or handle that failed,
// leaves the stand-in with the disk handles it had, and slow is only slow.
#include <string.h>

#include <skclass_mini/dawdle.h>

#include "fault_matrix.h"
#include "service_fixture.h"

namespace faulttest {
namespace {

using servicetest::AllModels;
using servicetest::ModelName;

const char kPrepare[] = "VixDiskLib_PrepareForAccess";
const char kEnd[] = "VixDiskLib_EndAccess";
const char kIdentity[] = "backup job 7";
const char kDisk[] = "memdisk://entry?size=1048576&seed=9";
constexpr uint64_t kDiskSectors = 1048576 / 512;

size_t Index(Fault fault) { return static_cast<size_t>(fault); }

class EntryFaultTest : public servicetest::InEachModel<servicetest::ConnectedServiceTest> {
protected:
    bool RecordIsTheCallers() const { return service->ThreadingModel() == diskBroker::kNoThreadingModel; }
    servicetest::RemoteMachine machine;
};

// Connect: a failure comes back as VDDK gave it and hands out no connection; a
// failed clean-up before it changes nothing; a failed disconnect leaves the
// connection the caller's, and the next disconnect releases it. None of them
// touches the last error.
TEST_P(EntryFaultTest, ConnectionCallsEndWithThePromisedResult) {
    const struct {
        const char *function;
        bool connectFails;
        bool disconnectFails;
    } rows[] = {{"VixDiskLib_ConnectEx", true, false},
                {"VixDiskLib_Cleanup", false, false},
                {"VixDiskLib_Disconnect", false, true}};
    for (const auto &row : rows) {
        for (Fault fault : kFaults) {
            SCOPED_TRACE(std::string(row.function) + " " + FaultName(fault));
            const VixError failure = fault == Fault::Slow ? VixError(VIX_OK) : kInjectedError;
            ASSERT_TRUE(Inject(sim, row.function, fault));
            VixDiskLibConnection second = nullptr;
            EXPECT_EQ(service->VixDiskLib_ConnectEx(&local, 1, nullptr, nullptr, &second),
                      row.connectFails ? failure : VixError(VIX_OK));
            EXPECT_EQ(second == nullptr, row.connectFails && fault != Fault::Slow);
            if (second) {
                EXPECT_EQ(service->VixDiskLib_Disconnect(second, &local),
                          row.disconnectFails ? failure : VixError(VIX_OK));
                if (row.disconnectFails && fault != Fault::Slow) {
                    sim.VddkSim_Reset();
                    EXPECT_EQ(service->VixDiskLib_Disconnect(second, &local), VixError(VIX_OK))
                        << "the connection VDDK kept is still the caller's to release";
                }
            }
            if (row.connectFails && fault == Fault::Once) {
                EXPECT_EQ(service->VixDiskLib_ConnectEx(&local, 1, nullptr, nullptr, &second), VixError(VIX_OK));
                EXPECT_EQ(service->VixDiskLib_Disconnect(second, &local), VixError(VIX_OK));
            }
            EXPECT_EQ(service->LastError(), VixError(VIX_OK));
            EXPECT_EQ(Calls("VixDiskLib_Cleanup"), Calls("VixDiskLib_ConnectEx")) << "a clean-up before every connect";
        }
    }
}

// Access preparation: a failed prepare waits 1000 ms (through the time seam),
// ends the half-done access and tries again, ten times at most; a failed end is
// tried again alone. Both return 0 in every case here: an end failure is always
// masked, and a prepare that never succeeds reports the last end's result, which
// succeeded. Kept on purpose: the backup goes on without preparation.
TEST_P(EntryFaultTest, AccessCallsEndWithThePromisedResult) {
    const struct {
        const char *function;
        VixError (diskBroker::*call)(const VixDiskLibConnectParams *, const char *);
        uint64_t prepares[3];  // calls, by fault (once, always, slow)
        uint64_t ends[3];
        bool preparedAfter[3];
    } rows[] = {{kPrepare, &diskBroker::VixDiskLib_PrepareForAccess, {2, 10, 1}, {1, 10, 0}, {true, false, true}},
                {kEnd, &diskBroker::VixDiskLib_EndAccess, {1, 1, 1}, {2, 10, 1}, {false, true, false}}};
    for (const auto &row : rows) {
        for (Fault fault : kFaults) {
            SCOPED_TRACE(std::string(row.function) + " " + FaultName(fault));
            ASSERT_TRUE(Inject(sim, row.function, fault));
            if (row.call == &diskBroker::VixDiskLib_EndAccess) {
                ASSERT_EQ(service->VixDiskLib_PrepareForAccess(&machine.params, kIdentity), VixError(VIX_OK));
            }
            skclass::ResetDawdleRequested();
            EXPECT_EQ((service.get()->*row.call)(&machine.params, kIdentity), VixError(VIX_OK));
            EXPECT_EQ(Calls(kPrepare), row.prepares[Index(fault)]);
            EXPECT_EQ(Calls(kEnd), row.ends[Index(fault)]);
            EXPECT_EQ(skclass::DawdleRequestedMilliseconds(),
                      fault == Fault::Once ? 1000u : fault == Fault::Always ? 10000u : 0u);
            uint32_t prepared = 0, ended = 0;
            EXPECT_EQ(sim.VddkSim_AccessState(machine.params.vmxSpec, &prepared, &ended) == 1,
                      row.preparedAfter[Index(fault)]);
            EXPECT_EQ(service->LastError(), VixError(VIX_OK));
        }
    }
}

// Disk handles: a failed open hands out no handle and leaves no VDDK handle
// open; a failed GetInfo gives no information; a failed close returns VDDK's
// result. In every case the stand-in ends with the handles it had.
TEST_P(EntryFaultTest, HandleCallsEndWithThePromisedResult) {
    for (const char *function : {"VixDiskLib_Open", "VixDiskLib_GetInfo", "VixDiskLib_Close"}) {
        for (Fault fault : kFaults) {
            SCOPED_TRACE(std::string(function) + " " + FaultName(fault));
            const auto is = [&](const char *name) { return strcmp(function, name) == 0; };
            const VixError failure = fault == Fault::Slow ? VixError(VIX_OK) : kInjectedError;
            const uint32_t before = sim.VddkSim_OpenHandleCount();
            if (is("VixDiskLib_Open")) {
                ASSERT_TRUE(Inject(sim, function, fault));
            }
            _vixReadWriteHandle *handle = reinterpret_cast<_vixReadWriteHandle *>(1);
            wcstring mode = L"stale";
            EXPECT_EQ(service->VixDiskLib_Open(connection, kDisk, 0, L"Read", &handle, mode),
                      is("VixDiskLib_Open") ? failure : VixError(VIX_OK));
            if (is("VixDiskLib_Open") && fault != Fault::Slow) {
                EXPECT_EQ(handle, nullptr) << "a handle that failed to open is not handed out";
                EXPECT_EQ(mode, L"");
                EXPECT_EQ(sim.VddkSim_OpenHandleCount(), before);
                continue;
            }
            ASSERT_NE(handle, nullptr);
            EXPECT_EQ(mode, L"file");
            ASSERT_TRUE(Inject(sim, function, fault));

            VixDiskLibInfo *info = nullptr;
            EXPECT_EQ(service->VixDiskLib_GetInfo(handle, &info), is("VixDiskLib_GetInfo") ? failure : VixError(VIX_OK));
            EXPECT_EQ(info == nullptr, is("VixDiskLib_GetInfo") && fault != Fault::Slow);
            if (info) {
                EXPECT_EQ(info->capacity, kDiskSectors);
            }
            service->VixDiskLib_FreeInfo(info);

            const VixDiskLibHandle vixHandle = handle->vixHandle;
            EXPECT_EQ(service->VixDiskLib_Close(handle), is("VixDiskLib_Close") ? failure : VixError(VIX_OK));
            if (is("VixDiskLib_Close") && fault != Fault::Slow) {
                // VDDK keeps a handle whose close failed. The caller of the
                // no-threading model still has the record and closes again; in
                // the worker model Close has freed the record, and only VDDK
                // itself can let its handle go.
                EXPECT_EQ(sim.VddkSim_OpenHandleCount(), before + 1);
                sim.VddkSim_Reset();
                const VixError closed =
                    RecordIsTheCallers() ? service->VixDiskLib_Close(handle) : vddk.VixDiskLib_Close(vixHandle);
                EXPECT_EQ(closed, VixError(VIX_OK));
            }
            if (RecordIsTheCallers()) delete handle;
            EXPECT_EQ(sim.VddkSim_OpenHandleCount(), before);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Models, EntryFaultTest, ::testing::ValuesIn(AllModels()), ModelName);

}  // namespace
}  // namespace faulttest
