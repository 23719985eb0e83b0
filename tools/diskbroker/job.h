// What every disk command shares: the options for VDDK, the connection and
// the caches, and a Job that sets up VDDK, the service and the connection in
// order and takes them down in reverse.
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "caches.h"
#include "cli.h"
#include "observe.h"
#include "session.h"
#include "vddk_setup.h"

namespace dbtool {

// The command's own options followed by the shared ones.
std::vector<OptionSpec> WithCommonOptions(std::vector<OptionSpec> own, bool cacheOptions);
extern const wchar_t kCommonHelp[];
extern const wchar_t kCacheHelp[];

ConnectionOptions ConnectionFrom(const Args &args, bool readOnly);
// A local file path made absolute; a server's datastore path ("[ds] vm/x.vmdk")
// or a memory disk's name as given.
std::wstring DiskPathFrom(const Args &args, const std::wstring &word);
CacheTuning TuningFrom(const Args &args);

class Job {
public:
    // connect: false for commands that need VDDK but no disks (transports).
    Job(const Args &args, bool readOnly, bool connect = true);
    // Prints VDDK's cached warnings, if any, to stderr.
    ~Job();
    Job(const Job &) = delete;
    Job &operator=(const Job &) = delete;

    // A job made without a connection connects once it knows where: a VM's
    // disks on a server are reached through the snapshot the job takes first.
    void Connect(const ConnectionOptions &options);
    void Disconnect() { connection_.reset(); }

    LogWatch &Log() { return log_; }
    Service &Broker() { return *service_; }
    Connection &Link() { return *connection_; }
    const VddkSetup &Vddk() const { return *vddk_; }

private:
    LogWatch log_;  // first: it must see the start-up's lines too
    std::unique_ptr<VddkSetup> vddk_;
    std::unique_ptr<Service> service_;
    std::unique_ptr<Connection> connection_;
};

// "statistics: <line>" for the last read and the last write statistics line
// (the one logged at close), with how many extent lines came before it.
void PrintStatistics(const std::vector<std::wstring> &lines);
// Throws Failure when the library logged lost data during a pass.
void CheckNoProblems(LogWatch &log, const std::wstring &what);

}  // namespace dbtool
