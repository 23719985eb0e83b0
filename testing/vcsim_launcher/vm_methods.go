package main

import (
	"strings"

	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/methods"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

// vmMethods answers Reload and QueryChangedDiskAreas for one VirtualMachine.
type vmMethods struct {
	Self types.ManagedObjectReference
	vm   types.ManagedObjectReference
}

func (m *vmMethods) Reference() types.ManagedObjectReference { return m.Self }

// Reload: the simulator's state is always what it would read back.
func (m *vmMethods) Reload(req *types.Reload) soap.HasFault {
	return &methods.ReloadBody{Res: &types.ReloadResponse{}}
}

// QueryChangedDiskAreas as a server answers it for a disk whose every block
// may hold data: with change id "*" the whole disk from startOffset is one
// changed area; with the id of an earlier state nothing has changed since
// (the simulator never writes to disks). Faults as a server gives them:
// change tracking off, no such disk, an offset beyond the disk, a malformed id.
func (m *vmMethods) QueryChangedDiskAreas(req *types.QueryChangedDiskAreas) soap.HasFault {
	body := &methods.QueryChangedDiskAreasBody{}
	vm, ok := simulator.Map.Get(m.vm).(*simulator.VirtualMachine)
	if !ok {
		body.Fault_ = simulator.Fault("", &types.ManagedObjectNotFound{Obj: m.vm})
		return body
	}
	var enabled bool
	var capacity int64 = -1
	simulator.Map.WithLock(vm, func() {
		enabled = vm.Config.ChangeTrackingEnabled != nil && *vm.Config.ChangeTrackingEnabled
		for _, device := range vm.Config.Hardware.Device {
			if disk, isDisk := device.(*types.VirtualDisk); isDisk && disk.Key == req.DeviceKey {
				capacity = disk.CapacityInBytes
				if capacity == 0 {
					capacity = disk.CapacityInKB * 1024
				}
			}
		}
	})
	switch {
	case !enabled:
		body.Fault_ = simulator.Fault("change tracking is not enabled for the virtual machine", &types.FileFault{})
	case capacity < 0:
		body.Fault_ = simulator.Fault("the virtual machine has no disk with this key", &types.InvalidArgument{InvalidProperty: "deviceKey"})
	case req.StartOffset < 0 || req.StartOffset >= capacity:
		body.Fault_ = simulator.Fault("the start offset is beyond the disk", &types.InvalidArgument{InvalidProperty: "startOffset"})
	case req.ChangeId != "*" && !strings.Contains(req.ChangeId, "/"):
		body.Fault_ = simulator.Fault("not a change id: "+req.ChangeId, &types.InvalidArgument{InvalidProperty: "changeId"})
	default:
		info := types.DiskChangeInfo{StartOffset: req.StartOffset, Length: capacity - req.StartOffset}
		if req.ChangeId == "*" {
			info.ChangedArea = []types.DiskChangeExtent{{Start: req.StartOffset, Length: capacity - req.StartOffset}}
		}
		body.Res = &types.QueryChangedDiskAreasResponse{Returnval: info}
	}
	return body
}
