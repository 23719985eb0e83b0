// The vSphere side of the program: the web-services library (the stand-in,
// installed the production way, or the registered one), a session with the
// password taken from the environment, and the vm-backup job over it.
#pragma once
#include <stdint.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <skclass_mini/handles.h>
#include <vmtools_soapwrapper.h>

#include "caches.h"
#include "standin_machine.h"

namespace dbtool {

struct VsphereOptions {
    std::wstring server;
    std::wstring user = L"backup@vsphere.local";  // the stand-in's account
    std::wstring passwordVariable = L"DISKBROKER_PASSWORD";
    bool standin = true;
    bool live = false;       // this product's own client (ravelkit-live), for a real server or the simulator
    std::wstring inventory;  // the stand-in's state file; empty: the one beside the program
};

// Puts the library stand-in where the product's registry finds it (beside the
// VDDK stand-in, whose install value the VDDK set-up has written) and gives it
// its state file, so the stand-in's server keeps snapshots across runs.
// Nothing for the registered library.
class VsphereLibrary {
public:
    explicit VsphereLibrary(const VsphereOptions &options);
    const std::wstring &Description() const { return description_; }

private:
    std::unique_ptr<StandinMachine> machine_;  // the sibling product's install value; outlives the module
    skclass::UniqueModule standin_;            // keeps the stand-in's state for the run
    std::wstring description_;
};

// A logged-in session; disconnects (and frees the wrapper) on destruction.
class VsphereSession {
public:
    explicit VsphereSession(const VsphereOptions &options);
    ~VsphereSession();
    VsphereSession(const VsphereSession &) = delete;
    VsphereSession &operator=(const VsphereSession &) = delete;

    soapVmToolsWrapper *Wrapper() const { return wrapper_; }
    void *Handle() const { return session_; }
    const wcstring &Password() const { return password_; }
    // Throws Failure "<what> failed: 0x... (<the server's last error>)" unless result is 0.
    void Check(uint32_t result, const std::wstring &what);
    std::wstring LastError();

private:
    soapVmToolsWrapper *wrapper_ = nullptr;
    void *session_ = nullptr;
    wcstring password_;  // wiped on destruction; never printed
};

struct VmBackupRequest {
    VsphereOptions vsphere;
    std::wstring vm;
    std::wstring folder;
    std::wstring ownerKey = L"diskbroker vm-backup";
    std::vector<std::wstring> jobWords;  // --vddk and cache options for the disk job
    std::wstring thumbprint;             // a server's certificate thumbprint, for VDDK
    std::wstring transports;             // VDDK's transport modes to try ("nbdssl:nbd"); empty: its default
    bool showProgress = true;
    // Called before each disk streams (tests look at the VM lock there).
    std::function<void(const std::wstring &disk)> beforeDisk;
};

struct VmBackupResult {
    std::wstring snapshot;
    std::vector<std::wstring> images;
    uint64_t bytes = 0;
};

// Connects, enables change tracking, snapshots the VM under the owner key
// (locking it), backs up every disk through the read cache, removes the
// snapshot (releasing the VM) and disconnects. The snapshot and the lock go
// on every path once taken; a failure throws Failure.
VmBackupResult VmBackup(const VmBackupRequest &request);

}  // namespace dbtool
