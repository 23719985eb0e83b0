package main

import (
	"os"
	"path/filepath"

	"github.com/vmware/govmomi/simulator"
)

// linkDatastores makes <root>/<datastore name> a link to the folder that holds
// each simulated datastore's files (a temporary folder of the simulator's
// choosing), so that "[ds] vm/disk.vmdk" is <root>/ds/vm/disk.vmdk for the
// tests that put real disks where the simulator's VMs name them.
func linkDatastores(root string) error {
	if err := os.MkdirAll(root, 0755); err != nil {
		return err
	}
	for _, entity := range simulator.Map.All("Datastore") {
		ds := entity.(*simulator.Datastore)
		link := filepath.Join(root, ds.Name)
		_ = os.Remove(link) // a link of an earlier run points at a folder that is gone
		if err := os.Symlink(ds.Info.GetDatastoreInfo().Url, link); err != nil {
			return err
		}
	}
	return nil
}
