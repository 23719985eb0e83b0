package main

import (
	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/types"
)

// Adjusts the simulated inventory to what the client's tests meet on real
// servers: change tracking supported, as on hardware version 7 and later.
//
// Methods this simulator lacks on objects whose type it asserts
// (VirtualMachine.Reload, QueryChangedDiskAreas, TaskManager.CreateTask) are
// answered by companion objects (methods.go); the ExtensionManager, whose type
// nothing asserts, is replaced outright.
func addExtensions() {
	addExtensionManager()
	for _, entity := range simulator.Map.All("VirtualMachine") {
		vm := entity.(*simulator.VirtualMachine)
		vm.Capability.ChangeTrackingSupported = types.NewBool(true)
	}
}
