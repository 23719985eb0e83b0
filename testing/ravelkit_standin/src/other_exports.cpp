// The entry points the stand-in does not serve: each is journalled and can be
// scripted; otherwise it fails with "not supported" as its last error.
#include "state.h"

using namespace ravelsim;

namespace {
constexpr int kNotSupported = 1;
int NotSupported(const char *entry) { return Fail(kNotSupported, std::string(entry) + " is not supported", 0); }
}  // namespace

#define RAVELSIM_UNSERVED(name, params)              \
    int name params {                                \
        RAVELSIM_ENTER(std::string());               \
        return NotSupported(__func__);               \
    }

extern "C" {

RAVELSIM_UNSERVED(vmcDestroyObject, (void *, const char *, int))
RAVELSIM_UNSERVED(vmcGetDiskChangedInfo, (void *, int, long, const char *, const char *, const char *, const char *,
                                          const char *, bool))
RAVELSIM_UNSERVED(vmcGetDiskChangedInfoStrm, (void *, int, long, const char *, const char *, const char *,
                                              const char *, std::wstringstream &, bool))
RAVELSIM_UNSERVED(vmcGetSnapshotDiskDetails, (void *, const char *, const char *, const char *, int *, int64_t *,
                                              std::string &, std::string &))
RAVELSIM_UNSERVED(vmcGetAllSnapshotDiskDetails, (void *, const char *, const char *,
                                                 std::vector<_vmc::_VmDiskDetails> &, std::string &, std::string &))
RAVELSIM_UNSERVED(vmcGetChangedDiskAreas, (void *, int, int64_t, const char *, const char *, const char *,
                                           _vmc::_DiskChangeInfo *))
RAVELSIM_UNSERVED(vmcCreateVirtualMachineEx,
                  (void *, std::string &, const char *, const char *, const char *, const char *, const char *,
                   const char *, const char *, const char **, int64_t, const char **, int64_t, const char *,
                   unsigned char, unsigned char, bool, bool, bool, bool, bool, bool, bool, bool, bool, bool))
RAVELSIM_UNSERVED(vmcCreateVirtualMachineExStrm,
                  (void *, std::string &, std::wstringstream &, const char *, const char *, const char *,
                   const char *, const char *, const char *, const char **, int64_t, const char **, int64_t,
                   const char *, unsigned char, unsigned char, bool, bool, bool, bool, bool, bool, bool, bool, bool,
                   bool))
RAVELSIM_UNSERVED(vmcCreateVirtualMachineP2V,
                  (void *, std::string &, uint64_t, const char *, const char *, const char *, const char *,
                   const char *, const char *, const char *, const char *, const char *, const char *, const char *,
                   const char *, const char *, int, long, const char *, const char *, bool, bool, bool, bool, bool,
                   bool, bool, bool))
RAVELSIM_UNSERVED(vmcReconfigVirtualMachineEx, (void *, const char *, const char *))
RAVELSIM_UNSERVED(vmcReconfigVirtualMachineExStrm, (void *, std::wstringstream &, const char *))
RAVELSIM_UNSERVED(vmcRegisterVirtualMachine, (void *, const char *, const char *, const char *, const char *,
                                              const char *, bool, std::string &))
RAVELSIM_UNSERVED(vmcValidateDatastorePath, (void *, const char *, const char *, bool *))
RAVELSIM_UNSERVED(vmcGetConfigTargetInfo, (void *, const char *, const char *))
RAVELSIM_UNSERVED(vmcGetConfigTargetInfoStrm, (void *, const char *, std::wstringstream &))
RAVELSIM_UNSERVED(vmcGetConfigTargetDatastoreDetails, (void *, const char *, std::vector<_vmc::_DatastoreDetails> &))
RAVELSIM_UNSERVED(vmcGetConfigTargetNetworkDetails, (void *, const char *, std::vector<_vmc::_NetworkDetails> &))
RAVELSIM_UNSERVED(vmcRevertToSnapshot, (void *, const char *, const char *, const char *, bool))
RAVELSIM_UNSERVED(vmcRevertToCurrentSnapshot, (void *, const char *, const char *, bool))
RAVELSIM_UNSERVED(vmcVmCustomFieldOp, (void *, const char *, const char *, int *, const char *, std::string &, bool))
RAVELSIM_UNSERVED(vmcGetObjPropertyByType, (void *, const char *, const char *, const char *, std::string &, bool))
RAVELSIM_UNSERVED(vmcConfigureVmStorageDrsForPod, (void *, const char *, const char *, const char *, const char *,
                                                   bool, bool, bool))
RAVELSIM_UNSERVED(vmcGetVmStorageDrsConfigDetails, (void *, const char *, std::string &, std::string &,
                                                    std::string &, bool &, bool &))
RAVELSIM_UNSERVED(vmcLogUserEvent, (void *, const char *, const char *, const char *))
RAVELSIM_UNSERVED(vmcPostGeneralEvent, (void *, int, int, int64_t, const char *, const char *, const char *,
                                        const char *, const char *, const char *, const char *, const char *,
                                        const char *, const char *, const char *))
RAVELSIM_UNSERVED(vmcCreateEventAlarm, (void *, const char *, const char *, const char *, const char *, bool,
                                        _vmc::_ExpressionEntry *, _vmc::_ExpressionEntry *, _vmc::_ExpressionEntry *,
                                        _vmc::_ExpressionEntry *, const char *, const char *, int, int, int,
                                        std::string &))
RAVELSIM_UNSERVED(vmcRemoveAlarm, (void *, const char *))
RAVELSIM_UNSERVED(vmcAcknowledgeAlarm, (void *, const char *, const char *, const char *))
RAVELSIM_UNSERVED(vmcGetEventHistory, (void *, const char *, const char *, const char *, const char *, const char *,
                                       const char *, const char *, const char *, const char *, const char *, bool,
                                       int64_t, int64_t, vmcEventCallback))

// No writer: the stand-in has nothing to write with.
xmlWriterMethods *vmcGetXmlWriter() {
    int scripted = 0;
    EnterCall(__func__, std::string(), &scripted);
    return nullptr;
}

}  // extern "C"
