// The service's disk handle: VDDK's handle of an open disk, the handle's
// read/write statistics and, when so configured, a worker thread of its own.
// Allocated by diskBroker::VixDiskLib_Open, given back by VixDiskLib_Close.
#pragma once
#include <memory>

#include <vixreadwritestats.h>
#include <vixworkerthread.h>
#include <vmware/vddk_api.h>

struct _vixReadWriteHandle {
    // The handle's own worker: only in the worker model with "Use Worker
    // thread for vixDiskLib read-write" on; otherwise null.
    std::unique_ptr<vixWorkerThread> worker;
    VixDiskLibHandle vixHandle = nullptr;
    // Kept by the disk library binding on every read and write of this handle;
    // used by one thread at a time, so not locked.
    _vixReadWriteStats stats;
};
