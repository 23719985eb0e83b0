// The read cache's extent list (load on the job thread, walk on the read
// thread) and the metadata export that opens every pass.
#include <string.h>

#include <algorithm>
#include <memory>
#include <new>

#include <skclass_mini/dawdle.h>
#include <skclass_mini/handles.h>
#include <skxml/xmlreader.h>

#include "diskbroker_private.h"
#include "vddkcache_common.h"
#include "vddkreadcache_internal.h"

using namespace vddkreadcache;
using diskbroker_detail::Guarded;

namespace {

constexpr DWORD kMetadataPollMs = 2000;
constexpr size_t kMetadataValueBytes = 1024;
// Between two reads of a metadata value that failed.
constexpr unsigned long kMetadataRetryMs = 100;
const wchar_t kStartDiskReadBuffer[] = L"diskBroker::startDiskReadBuffer()";
const wchar_t kReadMetadata[] = L"diskBroker::ReadVMDiskMetaData()";

// --- Extent walk ---------------------------------------------------------------
//
// The cursor always rests on an extent: DiskChangeInfo / area / extent. The
// reader keeps its cursor where it was after a failed move, so leaving an area
// means going up to it explicitly. An area without extents ends the walk:
// change lists are written with every area holding extents, and a job that
// met an empty one has always received the areas before it as the whole disk.

// A missing or unreadable attribute counts as 0, so such an extent reads nothing.
void TakeExtent(diskReadContextStruct *context, const CXmlReader &reader) {
    uint64_t offset = 0, length = 0;
    reader.GetAttributeUInt64(L"offset", offset);
    reader.GetAttributeUInt64(L"length", length);
    context->currentSector = offset / context->sectorSize;
    context->extentSectors = length / context->sectorSize;
    context->extentSectorsDone = 0;
}

void DropReader(diskReadContextStruct *context) {
    delete context->extentReader;
    context->extentReader = nullptr;
}

// --- Extent list load ----------------------------------------------------------

long LoadExtentList(CXmlReader &reader, const wcstring &path) {
    // Opened here first so that "cannot open" and "cannot parse" are told apart.
    skclass::UniqueFile probe(
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!probe) {
        SK_Zprintf_2(kSourceFile, 0, L"%s Could not open the metadata file for reading: '%s' Error: '%d'",
                     kStartDiskReadBuffer, path.c_str(), static_cast<int>(GetLastError()));
        return kXmlError;
    }
    probe.reset();
    // Parsed straight from the file (encoding from its BOM or declaration):
    // a million extents then cost no intermediate copy of the text.
    if (!reader.LoadFile(path.c_str())) {
        SK_Zprintf_2(kSourceFile, 0, L"%s Could not load the metadata file for reading: '%s' Error: '%d'",
                     kStartDiskReadBuffer, path.c_str(), static_cast<int>(GetLastError()));
        return kXmlError;
    }
    return 0;
}

// Returns once the read thread has exported this pass's metadata, or is gone.
// The event alone decides once it is set: a close on another thread may end
// the pass and clear metadataDone before this thread wakes, and the event,
// still set, would then never block again.
void WaitForMetadataExport(diskReadContextStruct *context) {
    while (!context->metadataDone && context->threadHandle) {
        HANDLE handles[2] = {context->metadataDoneEvent.get(), context->threadHandle};
        const DWORD result = handles[0] ? WaitForMultipleObjects(2, handles, FALSE, kMetadataPollMs) : WAIT_FAILED;
        if (result == WAIT_OBJECT_0 || result == WAIT_OBJECT_0 + 1) return;
        if (result == WAIT_FAILED) skclass::Dawdle(kMetadataPollMs);  // nothing to wait on: poll
    }
}

// --- Metadata export -------------------------------------------------------------

bool WriteBytes(HANDLE file, const char *bytes, size_t count) {
    DWORD written = 0;
    return WriteFile(file, bytes, static_cast<DWORD>(count), &written, nullptr) && written == count;
}

// A value VMware reports as longer than the buffer is read once more with the
// length it asked for; no VDDK value comes near this bound, so a larger claim
// is a fault, not a value.
constexpr size_t kMetadataValueLimit = 16u << 20;

// Where one key's value ended up: the fixed buffer, or one sized for a long value.
struct MetadataValue {
    char *fixed = nullptr;  // kMetadataValueBytes
    std::unique_ptr<char[]> large;
    const char *bytes = nullptr;
    size_t length = 0;
};

// Reads a value that did not fit: once, with the length VMware asked for.
VixError ReadLongValue(const PassTarget &target, const char *key, size_t required, MetadataValue &value) {
    if (required > kMetadataValueLimit) return VIX_E_BUFFER_TOOSMALL;
    value.large.reset(new (std::nothrow) char[required]());
    if (!value.large) return VIX_E_OUT_OF_MEMORY;
    size_t length = 0;
    const VixError error =
        target.broker->VixDiskLib_ReadMetadata(target.diskHandle, key, value.large.get(), required, &length);
    if (error == VIX_OK) {
        value.bytes = value.large.get();
        value.length = std::min(length, required);
    }
    return error;
}

// Reads one key's value. A value longer than the fixed buffer is read again
// once at its own length. Any other failure is asked for again for as long
// as the cache is neither cancelled nor stopped: a passing failure then costs
// nothing in the export, and a lasting one cannot keep the pass for ever.
// False when it gave up.
bool ReadMetadataValue(diskReadContextStruct *context, const PassTarget &target, const char *key,
                       MetadataValue &value) {
    for (bool told = false;; told = true) {
        size_t length = 0;
        VixError error =
            target.broker->VixDiskLib_ReadMetadata(target.diskHandle, key, value.fixed, kMetadataValueBytes, &length);
        if (error == VIX_OK) {
            value.bytes = value.fixed;
            value.length = std::min(length, kMetadataValueBytes);
            return true;
        }
        if (VIX_ERROR_CODE(error) == VIX_E_BUFFER_TOOSMALL && length > kMetadataValueBytes) {
            error = ReadLongValue(target, key, length, value);
            if (error == VIX_OK) return true;
            SK_Zprintf_2(kSourceFile, 0,
                         L"%s Could not read the value of the key '%s' (%I64u bytes) Error: '%I64d'. Skipping the "
                         L"rest of the metadata.",
                         kReadMetadata, wcstring::FromUtf8(key).c_str(), static_cast<unsigned long long>(length),
                         static_cast<long long>(error));
            return false;
        }
        if (!told)
            SK_Zprintf_2(kSourceFile, 0, L"%s Could not read the value of the key '%s' Error: '%I64d'. Retrying...",
                         kReadMetadata, wcstring::FromUtf8(key).c_str(), static_cast<long long>(error));
        if (context->cancelRequested || context->stopRequested) return false;
        skclass::Dawdle(kMetadataRetryMs);
    }
}

// Each key with its zero, then its value as VMware sized it. The list ends at
// an empty key, and also at a one-character key: exports already taken end
// there, and a restore must find the same keys in them.
void WriteKeysAndValues(diskReadContextStruct *context, const PassTarget &target, HANDLE file, const char *keys,
                        size_t keysLength, char *valueBuffer) {
    const char *key = keys;
    const char *const end = keys + keysLength;
    while (end - key >= 2 && key[0] != '\0' && key[1] != '\0') {
        const size_t keyLength = strnlen(key, static_cast<size_t>(end - key));
        if (key + keyLength == end) return;  // no terminating zero inside the list
        MetadataValue value;
        value.fixed = valueBuffer;
        if (!ReadMetadataValue(context, target, key, value)) return;
        WriteBytes(file, key, keyLength + 1);
        WriteBytes(file, value.bytes, value.length);
        key += keyLength + 1;
    }
}

}  // namespace

namespace vddkreadcache {

void SelectFirstDiskExtent(diskReadContextStruct *context) {
    CXmlReader *reader = context->extentReader;
    if (!reader || !reader->SelectSingleNode(L"DiskChangeInfo") || !reader->SelectFirstChild() ||
        !reader->SelectFirstChild()) {
        DropReader(context);
        return;
    }
    context->sectorSize = kSectorSize;
    TakeExtent(context, *reader);
}

long GetNextDiskExtent(diskReadContextStruct *context) {
    CXmlReader *reader = context->extentReader;
    if (reader && (reader->SelectNextSibling() ||
                   (reader->SelectParent() && reader->SelectNextSibling() && reader->SelectFirstChild()))) {
        TakeExtent(context, *reader);
        return 0;
    }
    SK_Zprintf_2(kSourceFile, 0, L"GetNextDiskExtent(): End of disk");
    context->currentSector = 0;
    context->extentSectors = 0;
    context->extentSectorsDone = 0;
    context->endOfDisk = 1;
    DropReader(context);
    return kEndOfDisk;
}

long ReadVMDiskMetaData(diskReadContextStruct *context, const PassTarget &target) {
    auto done = skclass::MakeScopeExit([context] {
        context->metadataDone = 1;
        SetEvent(context->metadataDoneEvent.get());
    });
    size_t keysLength = 0;
    target.broker->VixDiskLib_GetMetadataKeys(target.diskHandle, nullptr, 0, &keysLength);
    std::unique_ptr<char[]> keys, value;
    if (keysLength != 0) {
        keys.reset(new (std::nothrow) char[keysLength]());
        value.reset(new (std::nothrow) char[kMetadataValueBytes]());
        if (!keys || !value) {
            SK_Zprintf_2(kSourceFile, 0, L"%s Could not allocate memory.", kReadMetadata);
            return vddkcache::kResourceError;
        }
    }
    const wcstring &path = context->metadataFilePath;
    skclass::UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                         CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        SK_Zprintf_2(kSourceFile, 0, L"%s Could not create the file '%s' Error: %d ", kReadMetadata, path.c_str(),
                     static_cast<int>(GetLastError()));
        return kMetadataFileError;
    }
    size_t required = 0;
    const VixError error = target.broker->VixDiskLib_GetMetadataKeys(target.diskHandle, keys.get(), keysLength,
                                                                     &required);
    if (error != VIX_OK) {
        wcstring text;
        target.broker->GetErrorText(error, text);
        SK_Zprintf_2(kSourceFile, 0, L"%s Could not read the disk metadata. Error Text: '%s' Error: '%I64d' ",
                     kReadMetadata, text.c_str(), static_cast<long long>(error));
        vddkcache::PublishError(context->errorText, L"VixDiskLib_GetMetadataKeys() reported the error: " + text,
                                context->errorCode, static_cast<uint32_t>(kMetadataKeysError));
        return kMetadataKeysError;
    }
    if (keys) WriteKeysAndValues(context, target, file.get(), keys.get(), keysLength, value.get());
    return 0;
}

}  // namespace vddkreadcache

long diskBroker::startDiskReadBuffer(diskReadContextStruct *context) {
    if (!context) return kXmlError;
    return Guarded(L"startDiskReadBuffer", kXmlError, [&]() -> long {
        const wcstring path = context->extentFilePath;
        // A reader left by a pass that ended early, once no pass can use it.
        if (context->extentReader && WaitUntilOutOfPass(context, 0)) DropReader(context);
        std::unique_ptr<CXmlReader> reader;
        try {
            reader.reset(new CXmlReader);
        } catch (...) {
        }
        if (!reader) {
            SK_Zprintf_2(kSourceFile, 0, L"%s Could not intialize XML reader for the metadata : '%s' Error: '%d'",
                         kStartDiskReadBuffer, path.c_str(), static_cast<int>(GetLastError()));
            return kXmlError;
        }
        const long result = LoadExtentList(*reader, path);
        if (result != 0) return result;
        context->extentReader = reader.release();
        SK_Zprintf_2(kSourceFile, 0, L"Main Thread: setting the event startDiskRead");
        ResetEvent(context->metadataDoneEvent.get());
        ResetEvent(context->passEndedEvent.get());
        context->metadataDone = 0;
        context->readActive = 1;
        context->endOfDisk = 0;
        SetEvent(context->startEvent);
        WaitForMetadataExport(context);
        return 0;
    });
}
