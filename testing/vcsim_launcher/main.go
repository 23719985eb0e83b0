// vcsim-launcher: govmomi's vSphere simulator as a real HTTPS server on
// 127.0.0.1 for the web-services client's tests. It prints the SDK URL on
// its first line (and into -url-file once listening), then serves until it is
// signalled (or, with -stdin, its standard input closes).
package main

import (
	"crypto/tls"
	"flag"
	"fmt"
	"io"
	"io/ioutil"
	"log"
	"net/url"
	"os"
	"os/signal"
	"syscall"

	"github.com/vmware/govmomi/simulator"
)

func main() {
	esx := flag.Bool("esx", false, "simulate a stand-alone ESX host instead of a vCenter")
	user := flag.String("user", "backup@vsphere.local", "the only account")
	password := flag.String("password", "Sim-Pass1", "its password")
	urlFile := flag.String("url-file", "", "file that receives the SDK URL once the server listens")
	watchStdin := flag.Bool("stdin", false, "stop when standard input closes")
	datastores := flag.String("datastore-root", "", "folder that receives one link per datastore, named as the datastore")
	flag.Parse()

	model := simulator.VPX()
	if *esx {
		model = simulator.ESX()
	}
	if err := model.Create(); err != nil {
		log.Fatalf("vcsim-launcher: creating the inventory: %v", err)
	}
	defer model.Remove()
	addExtensions()
	if *datastores != "" {
		if err := linkDatastores(*datastores); err != nil {
			log.Fatalf("vcsim-launcher: linking the datastores: %v", err)
		}
	}

	model.Service.TLS = new(tls.Config)
	model.Service.Listen = &url.URL{Host: "127.0.0.1:0", User: url.UserPassword(*user, *password)}
	server := model.Service.NewServer()
	defer server.Close()
	// Before its URL is published, so no request can be on its way yet.
	server.Server.Config.Handler = routeMissingMethods(server.Server.Config.Handler)

	sdk := *server.URL
	sdk.User = nil
	fmt.Println(sdk.String())
	if *urlFile != "" {
		if err := ioutil.WriteFile(*urlFile+".tmp", []byte(sdk.String()+"\n"), 0644); err != nil {
			log.Fatalf("vcsim-launcher: %v", err)
		}
		if err := os.Rename(*urlFile+".tmp", *urlFile); err != nil {
			log.Fatalf("vcsim-launcher: %v", err)
		}
	}

	stop := make(chan os.Signal, 1)
	signal.Notify(stop, syscall.SIGTERM, syscall.SIGINT)
	if *watchStdin {
		go func() {
			io.Copy(ioutil.Discard, os.Stdin)
			stop <- syscall.SIGTERM
		}()
	}
	<-stop
}
