#include "session.h"

#include <string.h>

#include <vector>

#include "console.h"
#include "errors.h"

namespace dbtool {
namespace {

// Owns narrow copies of the connection texts for the lifetime of one connect
// call and wipes the password afterwards.
struct NarrowParams {
    std::string server, user, password, thumbprint, vmxSpec;
    VixDiskLibConnectParams params{};

    ~NarrowParams() {
        if (!password.empty()) SecureZeroMemory(&password[0], password.size());
    }
    static char *Text(std::string &s) { return s.empty() ? nullptr : &s[0]; }
};

void ReadPassword(const std::wstring &variable, std::string &password) {
    const DWORD needed = GetEnvironmentVariableW(variable.c_str(), nullptr, 0);
    if (needed == 0)
        throw Failure(L"a server connection needs a password in the environment variable " + variable +
                      L" (it is never taken from the command line)");
    std::vector<wchar_t> wide(needed, L'\0');
    const DWORD length = GetEnvironmentVariableW(variable.c_str(), wide.data(), needed);
    // Straight from the buffer, so no copy of the secret is left unwiped.
    password = cstring::ToUtf8(wide.data(), length < needed ? length : 0);
    SecureZeroMemory(wide.data(), wide.size() * sizeof(wchar_t));
}

const wchar_t *AdapterName(VixDiskLibAdapterType adapter) {
    switch (adapter) {
    case VIXDISKLIB_ADAPTER_IDE: return L"IDE";
    case VIXDISKLIB_ADAPTER_SCSI_BUSLOGIC: return L"SCSI BusLogic";
    case VIXDISKLIB_ADAPTER_SCSI_LSILOGIC: return L"SCSI LSI Logic";
    default: return L"unknown";
    }
}

}  // namespace

Service::Service() {
    broker_ = diskBroker::GetInstance();
    if (!broker_) throw Failure(L"the diskBroker service could not be created (see the log)");
    const VixError initError = broker_->LastError();
    if (initError != 0) {
        const std::wstring text = broker_->LastErrorText();
        broker_.reset();
        diskBroker::ReleaseInstance();
        throw Failure(L"VDDK could not be started: " + (text.empty() ? L"see the log" : text) + L" (VDDK error " +
                      std::to_wstring(VIX_ERROR_CODE(initError)) + L")");
    }
}

Service::~Service() {
    broker_.reset();
    diskBroker::ReleaseInstance();
}

std::wstring Service::ErrorText(VixError error) {
    wcstring text;
    broker_->GetErrorText(error, text);
    return text.empty() ? L"unknown error" : std::wstring(text);
}

void Service::Check(VixError error, const std::wstring &what) {
    if (error == VIX_OK) return;
    throw Failure(what + L": " + ErrorText(error) + L" (VDDK error " + std::to_wstring(VIX_ERROR_CODE(error)) + L")");
}

std::wstring Service::TakeVddkLog() {
    wcstring cached;
    broker_->GetCachedVDDKlog(&cached);
    // VDDK's messages end with their own line break, and the cache adds one.
    std::wstring text;
    size_t start = 0;
    while (start < cached.size()) {
        size_t end = cached.find(L'\n', start);
        if (end == std::wstring::npos) end = cached.size();
        std::wstring line = cached.substr(start, end - start);
        while (!line.empty() && (line.back() == L'\r' || line.back() == L' ')) line.pop_back();
        if (!line.empty()) text += line + L"\n";
        start = end + 1;
    }
    return text;
}

Connection::Connection(Service &service, const ConnectionOptions &options) : service_(service) {
    // All-null parameters make a local connection, as VDDK documents it.
    NarrowParams narrow;
    if (!options.server.empty()) {
        narrow.server = Utf8(options.server);
        narrow.user = Utf8(options.user);
        narrow.thumbprint = Utf8(options.thumbprint);
        narrow.vmxSpec = Utf8(options.vmxSpec);
        ReadPassword(options.passwordVariable, narrow.password);
        narrow.params.serverName = NarrowParams::Text(narrow.server);
        narrow.params.thumbPrint = NarrowParams::Text(narrow.thumbprint);
        narrow.params.vmxSpec = NarrowParams::Text(narrow.vmxSpec);
        narrow.params.port = options.port;
        narrow.params.credType = VIXDISKLIB_CRED_UID;
        narrow.params.creds.uid.userName = NarrowParams::Text(narrow.user);
        narrow.params.creds.uid.password = NarrowParams::Text(narrow.password);
    }
    const std::string snapshot = Utf8(options.snapshotRef);
    const std::string transports = Utf8(options.transports);
    const VixError error = service.Broker().VixDiskLib_ConnectEx(
        &narrow.params, options.readOnly ? 1 : 0, snapshot.empty() ? nullptr : snapshot.c_str(),
        transports.empty() ? nullptr : transports.c_str(), &connection_);
    service.Check(error, options.server.empty() ? std::wstring(L"cannot connect to local disks")
                                                : L"cannot connect to " + options.server);
}

Connection::~Connection() {
    if (connection_) service_.Broker().VixDiskLib_Disconnect(connection_, nullptr);
}

Disk::Disk(Service &service, Connection &connection, const std::wstring &path, Mode mode,
           const std::vector<std::wstring> &ancestors)
    : service_(service), path_(path) {
    wcstring transport;
    const std::string narrow = Utf8(path);
    const uint32 flags = mode == Mode::Read ? VIXDISKLIB_FLAG_OPEN_READ_ONLY : 0;
    const wchar_t *tag = mode == Mode::Read ? L"Read" : L"Write";
    std::vector<wcstring> folders(ancestors.begin(), ancestors.end());
    const VixError error =
        folders.empty()
            ? service.Broker().VixDiskLib_Open(connection.Get(), narrow.c_str(), flags, tag, &handle_, transport)
            : service.Broker().VixDiskLib_OpenLocal(connection.Get(), narrow.c_str(), flags, tag, &handle_, transport,
                                                    folders);
    if (error == VIX_OK && (!handle_ || !handle_->vixHandle)) {
        service.Broker().VixDiskLib_Close(handle_);
        handle_ = nullptr;
        throw Failure(L"cannot open '" + path + L"': the service opened nothing (is its threading model valid?)");
    }
    service.Check(error, L"cannot open '" + path + L"'");
    transport_ = transport;
}

Disk::~Disk() {
    if (handle_) service_.Broker().VixDiskLib_Close(handle_);
}

void Disk::Close() {
    _vixReadWriteHandle *handle = handle_;
    handle_ = nullptr;
    if (handle) service_.Check(service_.Broker().VixDiskLib_Close(handle), L"cannot close '" + path_ + L"'");
}

void Disk::Create(Service &service, Connection &connection, const std::wstring &path, uint64_t capacityBytes) {
    VixDiskLibCreateParams params{};
    params.diskType = VIXDISKLIB_DISK_MONOLITHIC_SPARSE;
    params.adapterType = VIXDISKLIB_ADAPTER_SCSI_LSILOGIC;
    params.hwVersion = VIXDISKLIB_HWVERSION_ESX4X;
    params.capacity = (capacityBytes + VIXDISKLIB_SECTOR_SIZE - 1) / VIXDISKLIB_SECTOR_SIZE;
    params.logicalSectorSize = VIXDISKLIB_SECTOR_SIZE;
    params.physicalSectorSize = VIXDISKLIB_SECTOR_SIZE;
    const std::string narrow = Utf8(path);
    service.Check(service.Broker().VixDiskLib_Create(connection.Get(), narrow.c_str(), &params, nullptr, nullptr),
                  L"cannot create '" + path + L"'");
}

DiskInfo Disk::Info() {
    VixDiskLibInfo *info = nullptr;
    service_.Check(service_.Broker().VixDiskLib_GetInfo(handle_, &info), L"cannot read the information of '" + path_ + L"'");
    if (!info) throw Failure(L"no information came back for '" + path_ + L"'");
    DiskInfo result;
    result.capacityBytes = info->capacity * VIXDISKLIB_SECTOR_SIZE;
    result.adapter = AdapterName(info->adapterType);
    result.numLinks = info->numLinks;
    result.parentHint = info->parentFileNameHint ? Wide(info->parentFileNameHint) : std::wstring();
    result.uuid = info->uuid ? Wide(info->uuid) : std::wstring();
    result.biosCylinders = info->biosGeo.cylinders;
    result.biosHeads = info->biosGeo.heads;
    result.biosSectors = info->biosGeo.sectors;
    service_.Broker().VixDiskLib_FreeInfo(info);
    return result;
}

void Disk::Read(uint64_t startSector, uint64_t sectorCount, uint8_t *buffer) {
    service_.Check(service_.Broker().VixDiskLib_Read(handle_, startSector, sectorCount, buffer),
                   L"cannot read " + std::to_wstring(sectorCount) + L" sectors at " + std::to_wstring(startSector) +
                       L" of '" + path_ + L"'");
}

void Disk::Write(uint64_t startSector, uint64_t sectorCount, const uint8_t *buffer) {
    service_.Check(service_.Broker().VixDiskLib_Write(handle_, startSector, sectorCount, buffer),
                   L"cannot write " + std::to_wstring(sectorCount) + L" sectors at " + std::to_wstring(startSector) +
                       L" of '" + path_ + L"'");
}

std::vector<std::string> Disk::MetadataKeys() {
    size_t required = 0;
    service_.Broker().VixDiskLib_GetMetadataKeys(handle_, nullptr, 0, &required);
    std::vector<std::string> keys;
    if (required == 0) return keys;
    std::vector<char> buffer(required + 1, '\0');
    service_.Check(service_.Broker().VixDiskLib_GetMetadataKeys(handle_, buffer.data(), buffer.size(), &required),
                   L"cannot list the metadata keys of '" + path_ + L"'");
    for (const char *key = buffer.data(); *key; key += strlen(key) + 1) keys.push_back(key);
    return keys;
}

std::string Disk::ReadMetadata(const std::string &key) {
    size_t required = 0;
    service_.Broker().VixDiskLib_ReadMetadata(handle_, key.c_str(), nullptr, 0, &required);
    std::vector<char> buffer(required + 1, '\0');
    service_.Check(service_.Broker().VixDiskLib_ReadMetadata(handle_, key.c_str(), buffer.data(), buffer.size(), &required),
                   L"cannot read the metadata key '" + Wide(key) + L"' of '" + path_ + L"'");
    return buffer.data();
}

void Disk::WriteMetadata(const std::string &key, const std::string &value) {
    service_.Check(service_.Broker().VixDiskLib_WriteMetadata(handle_, key.c_str(), value.c_str()),
                   L"cannot write the metadata key '" + Wide(key) + L"' of '" + path_ + L"'");
}

void Disk::CreateChild(const std::wstring &childPath) {
    const std::string narrow = Utf8(childPath);
    service_.Check(service_.Broker().VixDiskLib_CreateChild(handle_->vixHandle, narrow.c_str(),
                                                            VIXDISKLIB_DISK_MONOLITHIC_SPARSE, nullptr, nullptr),
                   L"cannot create the child disk '" + childPath + L"'");
}

}  // namespace dbtool
