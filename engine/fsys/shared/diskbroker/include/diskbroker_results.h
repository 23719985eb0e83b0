// The product's result codes that diskBroker.dll returns from its cache and
// vSphere functions (32-bit): 0 success, 0xE000xxxx failures, 0x2000xxxx
// informational or warning results a caller may continue after. Their texts
// live in the product's message catalogue. Several codes are shared by areas
// whose meanings differ; each area names the code for what it means there.
#pragma once
#include <stdint.h>

namespace dbresult {

constexpr uint32_t kOk = 0;

// --- Shared -----------------------------------------------------------------
constexpr uint32_t kNullArgument = 0xE000FE49;        // a required argument (pointer, session pair) is null
constexpr uint32_t kOutOfResources = 0xE0008442;      // memory, an event, a buffer or a thread could not be had
constexpr uint32_t kEntryPointUnresolved = 0xE000FE4E;  // a VDDK entry point was not bound (sign-extended as VixError)

// --- VDDK bindings ----------------------------------------------------------
constexpr uint32_t kDiskLibInstallPathNotFound = 0xE0009573;
constexpr uint32_t kDiskLibNotLoaded = 0xE0009584;
constexpr uint32_t kMntapiInstallPathNotFound = 0xE0009589;
constexpr uint32_t kMntapiNotLoaded = 0xE000958A;

// --- Read-ahead and write-behind caches -------------------------------------
constexpr uint32_t kTokenNotDuplicated = 0xE0008488;       // the caller's token could not be duplicated
constexpr uint32_t kExtentListUnreadable = 0xE0009588;     // the extent-list XML could not be opened or loaded
constexpr uint32_t kDiskReadFailed = 0xE0009578;
constexpr uint32_t kDiskWriteFailed = 0xE0009579;
constexpr uint32_t kMetadataKeysUnreadable = 0xE000957A;   // VMware could not list the metadata keys
constexpr uint32_t kMetadataFileNotCreated = 0xE0009596;
constexpr uint32_t kEndOfData = 0x2000FE0C;                // no more bytes in this pass
constexpr uint32_t kEndOfDisk = 0x2000FE07;                // the extent walk reached the end (internal)

// --- vSphere layer: library and sessions ------------------------------------
constexpr uint32_t kRavelkitNotLoaded = 0xE000957F;        // the web-services library was not found or bound
constexpr uint32_t kConnectFailed = 0xE0009583;
constexpr uint32_t kLoginFailed = 0xE0009541;
constexpr uint32_t kLogoutFailed = 0xE0009542;
constexpr uint32_t kSetTimeoutsFailed = 0xE0009580;

// --- vSphere layer: objects, snapshots, hosts -------------------------------
constexpr uint32_t kObjectDetailsUnreadable = 0xE0009543;  // object or server details could not be read
constexpr uint32_t kNoDiskBrokerService = 0xE0009584;      // no diskBroker object for the VM lock
constexpr uint32_t kVmNotPoweredOn = 0xE00095A3;
constexpr uint32_t kVmHasPhysicalModeDisk = 0xE0009599;
constexpr uint32_t kInfoDocumentFailed = 0xE0009581;       // backup or object information not produced
constexpr uint32_t kHostListFailed = 0xE00095CE;
constexpr uint32_t kSnapshotCreateFailed = 0xE0009574;
constexpr uint32_t kSnapshotRemoveFailed = 0xE000958E;

// --- vSphere layer: warnings (a backup goes on) ------------------------------
constexpr uint32_t kAccessPrepareFailed = 0x200095BF;      // the VM could not be locked
constexpr uint32_t kAccessEndFailed = 0x200095C0;          // the VM could not be released
constexpr uint32_t kExtensionRegisterFailed = 0x200095C2;
constexpr uint32_t kExtensionUnregisterFailed = 0x200095C3;
constexpr uint32_t kTaskCreateFailed = 0x200095C4;
constexpr uint32_t kTaskStateFailed = 0x200095C5;
constexpr uint32_t kTaskDescriptionFailed = 0x200095C6;
constexpr uint32_t kTaskProgressFailed = 0x200095C7;
constexpr uint32_t kTaskCancelFailed = 0x200095C8;

// --- vSphere faults, as vddkConvertVIErrorToEngResult translates the library's
// fault numbers. The catalogue holds their texts; each is named by the fault
// number(s) it stands for, except where its meaning is fixed here.
constexpr uint32_t kViFault25 = 0xE00095AA;
constexpr uint32_t kViFault26 = 0xE00095A5;
constexpr uint32_t kViFault29 = 0xE00095AC;
constexpr uint32_t kViFault185 = 0xE000959A;
constexpr uint32_t kViFaultGroup186 = 0xE00095A4;   // 186-188, 194-198, 204, 220, 222
constexpr uint32_t kViFaultGroup190 = 0xE00095A7;   // 190, 192, 200, 209, 216, 217, 224, 226, 228, 237-240, 242, 243
constexpr uint32_t kViFault191 = 0xE00095AE;
constexpr uint32_t kViFault193 = 0xE00095AD;
constexpr uint32_t kViFault199 = 0xE000959B;
constexpr uint32_t kViWarning202 = 0x200095C1;      // the one fault a caller treats as a warning
constexpr uint32_t kViFault205 = 0xE00095AF;
constexpr uint32_t kViFault206 = 0xE00095B0;        // 206, 207
constexpr uint32_t kViFault212 = 0xE00095A9;
constexpr uint32_t kViFaultNotPoweredOn = kVmNotPoweredOn;  // 213
constexpr uint32_t kViFault215 = 0xE00095A6;
constexpr uint32_t kViFault218 = 0xE000959C;
constexpr uint32_t kViFault219 = 0xE000959E;
constexpr uint32_t kViFault223 = 0xE00095AB;
constexpr uint32_t kViFault225 = 0xE00095B1;
constexpr uint32_t kViFault229 = 0xE000959F;
constexpr uint32_t kViFault231 = 0xE00095A0;
constexpr uint32_t kViFault232 = 0xE00095A1;
constexpr uint32_t kViFault233 = 0xE00095A2;
constexpr uint32_t kViFault234 = 0xE00095A8;
constexpr uint32_t kViFault235 = 0xE000959D;
constexpr uint32_t kViFault245 = 0xE00095B2;

}  // namespace dbresult
