// The library as a job uses it: the one service object, a connection, and disk
// handles, each released by its owner's destructor. Every failure becomes a
// Failure carrying VDDK's own text for the error.
#pragma once
#include <stdint.h>

#include <string>
#include <vector>

#include <diskbroker.h>

namespace dbtool {

// Takes the process-wide service and releases it on destruction, on this
// ordinary thread (never at static destruction: its destructor stops threads
// and unloads VDDK).
class Service {
public:
    Service();
    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    diskBroker &Broker() { return *broker_; }
    const skclass::shared_ptr<diskBroker> &Shared() const { return broker_; }
    std::wstring ErrorText(VixError error);
    // Throws Failure "<what>: <VDDK text> (VDDK error N)" unless error is 0.
    void Check(VixError error, const std::wstring &what);
    // The VDDK warnings and panics cached since the last call, one per line.
    std::wstring TakeVddkLog();

private:
    skclass::shared_ptr<diskBroker> broker_;
};

// Where disks live. Without a server, local files (and memory disks). With a
// server the password is read from an environment variable, handed to the
// library, then wiped; it is never printed or written anywhere.
struct ConnectionOptions {
    std::wstring server;
    std::wstring user;
    std::wstring passwordVariable = L"DISKBROKER_PASSWORD";
    std::wstring thumbprint;
    std::wstring vmxSpec;
    uint32_t port = 0;
    std::wstring transports;   // "nbd:hotadd"; empty: VDDK's default order
    std::wstring snapshotRef;  // remote only
    bool readOnly = true;
};

class Connection {
public:
    Connection(Service &service, const ConnectionOptions &options);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
    VixDiskLibConnection Get() const { return connection_; }

private:
    Service &service_;
    VixDiskLibConnection connection_ = nullptr;
};

struct DiskInfo {
    uint64_t capacityBytes = 0;
    std::wstring adapter;
    int numLinks = 0;
    std::wstring parentHint;
    std::wstring uuid;
    uint32_t biosCylinders = 0, biosHeads = 0, biosSectors = 0;
};

class Disk {
public:
    enum class Mode { Read, Write };
    // With ancestors (folders holding the disk's parents, nearest last), a
    // disk opened for reading is first relinked to them (VixDiskLib_OpenLocal).
    Disk(Service &service, Connection &connection, const std::wstring &path, Mode mode,
         const std::vector<std::wstring> &ancestors = {});
    // Closes without reporting (use Close to see a failure).
    ~Disk();
    Disk(const Disk &) = delete;
    Disk &operator=(const Disk &) = delete;

    // A monolithic sparse disk of capacityBytes (rounded up to whole sectors).
    static void Create(Service &service, Connection &connection, const std::wstring &path, uint64_t capacityBytes);

    _vixReadWriteHandle *Handle() const { return handle_; }
    const std::wstring &Path() const { return path_; }
    const std::wstring &TransportMode() const { return transport_; }
    DiskInfo Info();
    void Read(uint64_t startSector, uint64_t sectorCount, uint8_t *buffer);
    void Write(uint64_t startSector, uint64_t sectorCount, const uint8_t *buffer);
    std::vector<std::string> MetadataKeys();
    std::string ReadMetadata(const std::string &key);
    void WriteMetadata(const std::string &key, const std::string &value);
    // A child disk whose parent is this disk.
    void CreateChild(const std::wstring &childPath);
    // Closes (the library logs the handle's statistics line here).
    void Close();

private:
    Service &service_;
    std::wstring path_;
    std::wstring transport_;
    _vixReadWriteHandle *handle_ = nullptr;
};

}  // namespace dbtool
