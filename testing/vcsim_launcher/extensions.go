package main

import (
	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/types"
)

// Adjusts the simulated inventory to what the client's tests meet on real
// servers: change tracking supported, as on hardware version 7 and later.
//
// Methods this simulator lacks (VirtualMachine.Reload among them) cannot be
// added by wrapping the registered VirtualMachine objects: the simulator's
// property collector and snapshot code assert their concrete type.
func addExtensions() {
	addExtensionManager()
	for _, entity := range simulator.Map.All("VirtualMachine") {
		vm := entity.(*simulator.VirtualMachine)
		vm.Capability.ChangeTrackingSupported = types.NewBool(true)
	}
}
