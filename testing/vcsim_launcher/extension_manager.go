package main

import (
	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/methods"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/soap"
	"github.com/vmware/govmomi/vim25/types"
)

// extensionManager: the ExtensionManager this simulator names in its service
// content but registers without methods. An object of the simulator's registry,
// built on the mo type, so its property collector serves extensionList.
type extensionManager struct {
	mo.ExtensionManager
}

func (m *extensionManager) find(key string) int {
	for i := range m.ExtensionList {
		if m.ExtensionList[i].Key == key {
			return i
		}
	}
	return -1
}

func (m *extensionManager) RegisterExtension(req *types.RegisterExtension) soap.HasFault {
	body := &methods.RegisterExtensionBody{}
	if m.find(req.Extension.Key) >= 0 {
		body.Fault_ = simulator.Fault("extension already registered", &types.InvalidArgument{InvalidProperty: "key"})
		return body
	}
	m.ExtensionList = append(m.ExtensionList, req.Extension)
	body.Res = &types.RegisterExtensionResponse{}
	return body
}

func (m *extensionManager) UnregisterExtension(req *types.UnregisterExtension) soap.HasFault {
	body := &methods.UnregisterExtensionBody{}
	i := m.find(req.ExtensionKey)
	if i < 0 {
		body.Fault_ = simulator.Fault("extension not found", &types.NotFound{})
		return body
	}
	m.ExtensionList = append(m.ExtensionList[:i], m.ExtensionList[i+1:]...)
	body.Res = &types.UnregisterExtensionResponse{}
	return body
}

func (m *extensionManager) FindExtension(req *types.FindExtension) soap.HasFault {
	body := &methods.FindExtensionBody{Res: &types.FindExtensionResponse{}}
	if i := m.find(req.ExtensionKey); i >= 0 {
		found := m.ExtensionList[i]
		body.Res.Returnval = &found
	}
	return body
}

// Replaces the simulator's placeholder (a bare mo.ExtensionManager without
// methods), keeping whatever extensions it lists.
func addExtensionManager() {
	ref := types.ManagedObjectReference{Type: "ExtensionManager", Value: "ExtensionManager"}
	manager := &extensionManager{mo.ExtensionManager{Self: ref}}
	if placeholder, ok := simulator.Map.Get(ref).(*mo.ExtensionManager); ok {
		manager.ExtensionList = placeholder.ExtensionList
	}
	simulator.Map.Put(manager)
}
