// diskBroker start-up and shut-down: settings, threading model, VDDK InitEx and
// Exit, the process-wide instance.
#include <new>

#include <diskbroker.h>
#include <skclass_mini/configuration.h>
#include <skclass_mini/singleton.h>
#include <skclass_mini/win.h>
#include <skclass_mini/workerthread.h>
#include <skstdutl/sklog.h>
#include <vixdisklibglue.h>
#include <vixmntapiglue.h>
#include <vixworkerthread.h>

#include "diskbroker_private.h"

using diskbroker_detail::AgentKeyPath;
using diskbroker_detail::Guarded;
using diskbroker_detail::GuardedVoid;
using diskbroker_detail::OpenSettingsKey;

namespace {

constexpr char kSingletonKey[] = "diskBroker";
constexpr uint32 kVddkMajorVersion = 1;
constexpr uint32 kVddkMinorVersion = 0;
// Exactly these 12 characters, in any case, select the no-threading model;
// comparei compares lengths too, so "no threading " and "no thread" do not.
constexpr wchar_t kNoThreadingSetting[] = L"no threading";

// libDir for InitEx: the install directory the binding found, as UTF-8.
cstring LibraryDirectory(const vixDiskLibGlue *glue) {
    return glue ? cstring::ToUtf8(glue->installDir) : cstring();
}

}  // namespace

skclass::shared_ptr<diskBroker> diskBroker::GetInstance() {
    wcstring error;
    skclass::shared_ptr<diskBroker> instance = skclass::GetSingleton<diskBroker>(kSingletonKey, &error);
    if (!instance && !error.empty())
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::GetInstance() %s", error.c_str());
    return instance;
}

void diskBroker::ReleaseInstance() {
    // The returned reference dies at the end of this statement: if it was the
    // last one, the destructor runs here, on the caller's ordinary thread.
    skclass::ReleaseSingleton(kSingletonKey);
}

diskBroker::diskBroker() {
    GuardedVoid(L"diskBroker", [&] {
        ReadThreadingSettings();
        wcstring iniPath;
        const bool haveIniFile = createVDDkIniFile(iniPath);
        const cstring configFile = haveIniFile ? cstring::ToUtf8(iniPath) : cstring();
        const char *configFileArgument = haveIniFile ? configFile.c_str() : nullptr;
        if (threadingModel == kWorkerThreadModel)
            StartWorkerModel(configFileArgument);
        else
            StartNoThreadingModel(configFileArgument);
        if (haveIniFile && !preserveIniFile) DeleteIniFile(iniPath);
    });
    childParentLinkLock.emplace();
    shareDriveLetterLock.emplace();
    deviceMappingLock.emplace();
}

diskBroker::~diskBroker() {
    GuardedVoid(L"~diskBroker", [&] {
        VixDiskLib_Exit();
        // Descriptors put back and connections cancelled once VDDK is done with the files.
        ReleaseAllRemoteParentMappings();
        childParentLinkLock.reset();
        shareDriveLetterLock.reset();
        deviceMappingLock.reset();
        ClearCapturedLog();
        deviceMappings.clear();
        handleMappings.clear();
        diskSetMappings.clear();
        m_childParentLinkMap.clear();
        m_shareDriveLetterMap.clear();
        lastErrorText.clear();
    });
}

void diskBroker::ReadThreadingSettings() {
    Configuration agent;
    if (!OpenSettingsKey(agent, AgentKeyPath())) return;  // defaults: worker thread, direct read/write
    wcstring model;
    if (agent.Load(L"vixDiskLib Threading Model", model) && comparei(model, kNoThreadingSetting) == 0)
        threadingModel = kNoThreadingModel;
    if (threadingModel == kWorkerThreadModel) {
        unsigned long useWorker = 0;
        agent.LoadDWORD(L"Use Worker thread for vixDiskLib read-write", useWorker);
        useWorkerForReadWrite = useWorker != 0;
    }
    agent.Close();
}

void diskBroker::StartWorkerModel(const char *configFile) {
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker() Using the worker thread.");
    workerThread.reset(new (std::nothrow) vixWorkerThread(false));
    // A worker whose thread did not start has no bindings: not usable.
    if (workerThread && !workerThread->IsRunning()) workerThread.reset();
    if (!workerThread) return;
    // The name goes to the constructing thread, not to the worker: support's
    // debugger scripts look the job thread up under this name.
    WorkerThread::SetThreadName(GetCurrentThreadId(), L"vixMainWorkerThread");
    const cstring libDir = LibraryDirectory(workerThread->diskLibGlue.get());
    KeepInitExFailure(workerThread->VixDiskLib_InitEx(kVddkMajorVersion, kVddkMinorVersion, &VddkLogCallback,
                                                      &VddkWarningCallback, &VddkPanicCallback, libDir.c_str(),
                                                      configFile));
}

void diskBroker::StartNoThreadingModel(const char *configFile) {
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker() Not using the worker thread.");
    diskLibGlue.reset(new (std::nothrow) vixDiskLibGlue());
    if (diskLibGlue) {
        const cstring libDir = LibraryDirectory(diskLibGlue.get());
        KeepInitExFailure(diskLibGlue->VixDiskLib_InitEx(kVddkMajorVersion, kVddkMinorVersion, &VddkLogCallback,
                                                         &VddkWarningCallback, &VddkPanicCallback, libDir.c_str(),
                                                         configFile));
    }
    mntapiGlue.reset(new (std::nothrow) vixMntapiGlue());
    if (!mntapiGlue)
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker() could not instantiate a vixMntapiGlue object.");
}

void diskBroker::KeepInitExFailure(VixError result) {
    if (result == VIX_OK) return;
    KeepLastError(result);
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"VixDiskLib_InitEx() failed. Error code %I64d. Error Msg: %s",
                 static_cast<long long>(result), LastErrorText().c_str());
}

void diskBroker::DeleteIniFile(const wcstring &iniPath) const {
    if (DeleteFileW(iniPath.c_str())) return;
    // Names VixMntapi_Init and ends in a blank: the product's message as
    // log watchers know it.
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::VixMntapi_Init() Could not delete the file %s(0x%X) ",
                 iniPath.c_str(), static_cast<unsigned>(GetLastError()));
}

void diskBroker::VixDiskLib_Exit() {
    GuardedVoid(L"VixDiskLib_Exit", [&] {
        // VDDK's exit runs once. Model 0: the worker runs it as its last
        // call, is joined, then the libraries are unloaded (its destructor).
        // Model 1: here, on the caller's thread, and the binding, which
        // outlives the service when others hold it, must not exit it again.
        if (threadingModel == kWorkerThreadModel && workerThread) {
            workerThread.reset();
        } else if (threadingModel == kNoThreadingModel && diskLibGlue) {
            diskLibGlue->VixDiskLib_Exit();
            diskLibGlue->exitLibraryOnDestroy = false;
            diskLibGlue.reset();
        }
    });
}

void diskBroker::GetErrorText(VixError error, wcstring &text) {
    GuardedVoid(L"GetErrorText", [&] {
        Route<void>([&](vixWorkerThread &worker) { worker.GetErrorText(error, text); },
                    [&](vixDiskLibGlue &glue) {
                        char *vddkText = glue.VixDiskLib_GetErrorText(error, nullptr);
                        if (!vddkText) return;
                        text = wcstring::FromUtf8(vddkText);
                        glue.VixDiskLib_FreeErrorText(vddkText);
                    });
    });
}
