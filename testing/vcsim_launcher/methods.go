package main

import (
	"bytes"
	"io/ioutil"
	"net/http"
	"regexp"

	"github.com/vmware/govmomi/simulator"
	"github.com/vmware/govmomi/vim25/mo"
	"github.com/vmware/govmomi/vim25/types"
)

// Methods this simulator lacks on objects whose concrete type its own code
// asserts (VirtualMachine, TaskManager), so they cannot be replaced by a
// wrapping type: a request for one is routed to a companion object of type
// "<type>Methods" with the same value, registered in the simulator's registry.
// The simulator then dispatches it as any other call: its session check, its
// lock, its faults and its encoding.
var routed = map[string]string{
	"Reload":                "VirtualMachine",
	"QueryChangedDiskAreas": "VirtualMachine",
	"CreateTask":            "TaskManager",
}

var thisPattern = regexp.MustCompile(
	`<(?:[A-Za-z0-9]+:)?([A-Za-z]+)[^>]*>\s*<(?:[A-Za-z0-9]+:)?_this([^>]*)type="([A-Za-z]+)"([^>]*)>([^<]*)<`)

// companion returns the object that answers for ref's missing methods.
func companion(ref types.ManagedObjectReference) mo.Reference {
	switch ref.Type {
	case "VirtualMachine":
		return &vmMethods{Self: types.ManagedObjectReference{Type: "VirtualMachineMethods", Value: ref.Value}, vm: ref}
	case "TaskManager":
		return &taskManagerMethods{Self: types.ManagedObjectReference{Type: "TaskManagerMethods", Value: ref.Value}}
	}
	return nil
}

// routeMissingMethods wraps the simulator's handler: a routed method's _this
// is rewritten to the companion, made on first use for an object that exists.
func routeMissingMethods(next http.Handler) http.Handler {
	return http.HandlerFunc(func(w http.ResponseWriter, r *http.Request) {
		if r.Method != http.MethodPost || r.Body == nil {
			next.ServeHTTP(w, r)
			return
		}
		body, err := ioutil.ReadAll(r.Body)
		_ = r.Body.Close()
		if err != nil {
			w.WriteHeader(http.StatusBadRequest)
			return
		}
		if m := thisPattern.FindSubmatchIndex(body); m != nil {
			method, typ := string(body[m[2]:m[3]]), string(body[m[6]:m[7]])
			ref := types.ManagedObjectReference{Type: typ, Value: string(bytes.TrimSpace(body[m[10]:m[11]]))}
			if routed[method] == typ && simulator.Map.Get(ref) != nil {
				helper := companion(ref)
				if simulator.Map.Get(helper.Reference()) == nil {
					simulator.Map.Put(helper)
				}
				rewritten := append([]byte{}, body[:m[6]]...)
				rewritten = append(rewritten, typ+"Methods"...)
				body = append(rewritten, body[m[7]:]...)
			}
		}
		r.Body = ioutil.NopCloser(bytes.NewReader(body))
		r.ContentLength = int64(len(body))
		next.ServeHTTP(w, r)
	})
}
