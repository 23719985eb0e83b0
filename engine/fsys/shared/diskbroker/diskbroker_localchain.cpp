// Local disk chains: a disk whose ancestors were copied into other folders is
// relinked before it is opened, by rewriting the parent link in each child's
// embedded descriptor (read and written here as bytes, not through VDDK, which
// finds a parent only through that link).
#include <string>
#include <vector>

#include <diskbroker.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/win.h>
#include <skstdutl/sklog.h>

#include "diskbroker_private.h"
#include "vmdk_descriptor.h"

using diskbroker_detail::Guarded;

namespace {

constexpr VixError kChainNotRelinked = 16030;

// A read or write failure on a disk file: the text stands where a stream's
// message stood in the product's log lines, winError is GetLastError() there.
struct DiskFileError {
    std::string text;
    DWORD winError = 0;
};

// The descriptor area of one disk file, read whole.
struct DescriptorArea {
    skclass::UniqueFile file;
    bool embedded = false;  // false: the header's offset is 0
    uint64_t offset = 0;
    std::vector<char> bytes;
};

bool Fail(DiskFileError &error, const char *text) {
    error.winError = GetLastError();
    error.text = text;
    return false;
}

bool ReadAt(HANDLE file, uint64_t offset, void *buffer, size_t size, DiskFileError &error) {
    OVERLAPPED at = {};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD got = 0;
    if (!ReadFile(file, buffer, static_cast<DWORD>(size), &got, &at)) return Fail(error, "read failed");
    if (got != size) return Fail(error, "unexpected end of file");
    return true;
}

// Opens path (shared for reading and writing by others) and reads its header
// and, when it has one, its embedded descriptor area.
bool ReadDescriptorArea(const wcstring &path, bool writable, DescriptorArea &area, DiskFileError &error) {
    const DWORD access = GENERIC_READ | (writable ? GENERIC_WRITE : 0);
    area.file.reset(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!area.file) return Fail(error, "cannot open the file");
    LARGE_INTEGER fileSize = {};
    if (!GetFileSizeEx(area.file.get(), &fileSize)) return Fail(error, "cannot get the file size");
    uint8_t header[vmdkdesc::kHeaderSize];
    if (static_cast<uint64_t>(fileSize.QuadPart) < sizeof header) return Fail(error, "file shorter than its header");
    if (!ReadAt(area.file.get(), 0, header, sizeof header, error)) return false;
    const vmdkdesc::Area sectors = vmdkdesc::AreaFromHeader(header);
    area.embedded = sectors.offsetSectors != 0;
    if (!area.embedded) return true;
    size_t size = 0;
    if (!vmdkdesc::AreaInFile(sectors, static_cast<uint64_t>(fileSize.QuadPart), area.offset, size, error.text)) {
        error.winError = GetLastError();
        return false;
    }
    area.bytes.resize(size);
    return ReadAt(area.file.get(), area.offset, area.bytes.data(), size, error);
}

bool WriteAt(HANDLE file, uint64_t offset, const std::vector<char> &bytes, DiskFileError &error) {
    OVERLAPPED at = {};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD put = 0;
    if (!WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &put, &at) || put != bytes.size())
        return Fail(error, "write failed");
    return true;
}

wcstring FolderOf(const wcstring &path) {
    const size_t slash = path.rfind(L'\\');
    return slash == wcstring::npos ? wcstring() : wcstring(path.substr(0, slash));
}

void LogChildFailure(const wcstring &childDisk, const std::string &text, unsigned long winError) {
    SK_Zprintf_2(SK_SOURCE_FILE, 0,
                 L"diskBroker::UpdateParentDiskLink : Failed to open or read child disk %s, stream_error = %s, win_error= %u",
                 childDisk.c_str(), wcstring::FromUtf8(text.c_str()).c_str(), static_cast<unsigned>(winError));
}

bool ReadParentCid(const wcstring &parentDisk, std::string &cid) {
    DescriptorArea area;
    DiskFileError error;
    cid = vmdkdesc::kNoCid;
    if (ReadDescriptorArea(parentDisk, false, area, error) &&
        (!area.embedded || vmdkdesc::ReadCid(area.bytes.data(), area.bytes.size(), cid, error.text)))
        return true;
    SK_Zprintf_2(SK_SOURCE_FILE, 0,
                 L"diskBroker::UpdateParentDiskLink: Failed to open or read parent disk %s, stream_error = %s, win_error= %u",
                 parentDisk.c_str(), wcstring::FromUtf8(error.text.c_str()).c_str(),
                 static_cast<unsigned>(error.winError));
    return false;
}

bool RewriteChildLink(const wcstring &childDisk, const std::string &cid, const std::string &parentPath) {
    DescriptorArea area;
    DiskFileError error;
    if (!ReadDescriptorArea(childDisk, true, area, error)) {
        LogChildFailure(childDisk, error.text, error.winError);
        return false;
    }
    if (!area.embedded) {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::UpdateParentDiskLink: ERROR: Child disk %s has no descriptor!!",
                     childDisk.c_str());
        return false;
    }
    std::vector<char> rewritten;
    if (!vmdkdesc::RewriteParentLink(area.bytes.data(), area.bytes.size(), cid, parentPath, rewritten, error.text)) {
        LogChildFailure(childDisk, error.text, GetLastError());
        return false;
    }
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::UpdateParentDiskLink: Successfully processed descriptor for Child disk %s",
                 childDisk.c_str());
    if (!WriteAt(area.file.get(), area.offset, rewritten, error)) {
        LogChildFailure(childDisk, error.text, error.winError);
        return false;
    }
    return true;
}

}  // namespace

VixError diskBroker::VixDiskLib_OpenLocal(VixDiskLibConnection connection, const char *path, uint32 flags,
                                          const wchar_t *tag, _vixReadWriteHandle **handle, wcstring &transportMode,
                                          std::vector<wcstring> &ancestorLocations) {
    const VixError relinked = Guarded(L"VixDiskLib_OpenLocal", VixError(VIX_E_FAIL), [&]() -> VixError {
        // Disks opened for writing are not relinked.
        if (!tag || comparei(std::wstring(tag), L"Read") != 0 || !path) return VIX_OK;
        wcstring currentDisk = wcstring::FromAnsi(path);
        const wcstring diskFolder = FolderOf(currentDisk);
        // The last location holds the nearest ancestor.
        for (auto location = ancestorLocations.rbegin(); location != ancestorLocations.rend(); ++location) {
            if (comparei(*location, diskFolder) == 0) continue;
            const wcstring found = FindMatchingDisk(*location, vmdkdesc::DiskBaseName(currentDisk));
            if (found.empty()) {
                SK_Zprintf_2(SK_SOURCE_FILE, 0,
                             L"diskBroker::VixDiskLib_OpenLocal: FindMatchingDisk returned empty string. Disk, = %s, ancestor location = %s",
                             currentDisk.c_str(), location->c_str());
                return kChainNotRelinked;
            }
            const wcstring parentPath = *location + L"\\" + found;
            if (comparei(GetParentDiskPath(currentDisk), parentPath) != 0 &&
                !UpdateParentDiskLink(currentDisk, parentPath)) {
                SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::VixDiskLib_OpenLocal: UpdateParentDiskLink failed for %s",
                             currentDisk.c_str());
                return kChainNotRelinked;
            }
            currentDisk = parentPath;
        }
        return VIX_OK;
    });
    if (relinked != VIX_OK) {
        if (handle) *handle = nullptr;
        transportMode.clear();
        return relinked;
    }
    return VixDiskLib_Open(connection, path, flags, tag, handle, transportMode);
}

wcstring diskBroker::FindMatchingDisk(const wcstring &location, const wcstring &baseName) {
    return Guarded(L"FindMatchingDisk", wcstring(), [&] {
        const wcstring pattern = location + L"\\" + baseName + L"*" + L".vmdk";
        WIN32_FIND_DATAW entry = {};
        skclass::UniqueFind search(FindFirstFileW(pattern.c_str(), &entry));
        if (!search) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::FindMatchingDisk FindFirstFile failed for %s. Windows Error = %u",
                         pattern.c_str(), static_cast<unsigned>(GetLastError()));
            return wcstring();
        }
        do {
            // Case-sensitive on purpose: the names were written by VMware and
            // a differently cased file is somebody else's disk.
            if (vmdkdesc::DiskBaseName(entry.cFileName) == baseName) return wcstring(entry.cFileName);
        } while (FindNextFileW(search.get(), &entry));
        return wcstring();
    });
}

wcstring diskBroker::GetParentDiskPath(const wcstring &childDisk) {
    return Guarded(L"GetParentDiskPath", wcstring(), [&] {
        DescriptorArea area;
        DiskFileError error;
        std::string hint;
        if (ReadDescriptorArea(childDisk, false, area, error) &&
            (!area.embedded || vmdkdesc::ReadParentHint(area.bytes.data(), area.bytes.size(), hint, error.text)))
            return wcstring::FromAnsi(hint.c_str(), hint.size());
        if (error.winError == 0) error.winError = GetLastError();
        SK_Zprintf_2(SK_SOURCE_FILE, 0,
                     L"diskBroker::GetParentDiskPath: Failed to open or read disk %s, stream_error = %s, win_error= %u",
                     childDisk.c_str(), wcstring::FromUtf8(error.text.c_str()).c_str(),
                     static_cast<unsigned>(error.winError));
        return wcstring();
    });
}

bool diskBroker::UpdateParentDiskLink(const wcstring &childDisk, const wcstring &parentDisk) {
    return Guarded(L"UpdateParentDiskLink", false, [&] {
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::UpdateParentDiskLink: Child Disk = %s, Parent Disk = %s",
                     childDisk.c_str(), parentDisk.c_str());
        std::string cid;
        if (!ReadParentCid(parentDisk, cid)) return false;
        if (vmdkdesc::IsNoCid(cid)) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::UpdateParentDiskLink : Parent disk %s has invalid CID",
                         parentDisk.c_str());
            return false;
        }
        SK_Zprintf_2(SK_SOURCE_FILE, 0,
                     L"diskBroker::UpdateParentDiskLink: Successfully processed descriptor for Parent disk %s, CID = %s",
                     parentDisk.c_str(), wcstring::FromUtf8(cid.c_str()).c_str());
        return RewriteChildLink(childDisk, cid, cstring::ToAnsi(parentDisk));
    });
}
