// The VDDK configuration file handed to VixDiskLib_InitEx: the administrator's
// own file when the registry names one that exists, else a fresh vddk-<n>.ini in
// the product's data directory.
#include <string>

#include <diskbroker.h>
#include <skclass_mini/configuration.h>
#include <skclass_mini/handles.h>
#include <skclass_mini/win.h>
#include <skstdutl/sklog.h>

#include "diskbroker_private.h"

using diskbroker_detail::AgentKeyPath;
using diskbroker_detail::MiscKeyPath;
using diskbroker_detail::OpenSettingsKey;

namespace {

struct IniSettings {
    wcstring dataDirectory;            // no trailing backslash; empty: root of the current drive
    wcstring userFile;                 // "vixDiskLib.config.file"; empty: none
    unsigned long timeoutMs = 1800000; // 30 minutes
    unsigned long transportLogLevel = 6;
    unsigned long preserve = 0;
};

wcstring ReadDataDirectory() {
    wcstring dataDirectory;
    Configuration misc;
    if (OpenSettingsKey(misc, MiscKeyPath())) {
        if (!misc.Load(L"Data Path", dataDirectory) || dataDirectory.empty()) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0,
                         L"diskBroker::createVDDkIniFile() Could not get the datapath from registry. Writing files to c:");
            dataDirectory = L"C:";
        }
        misc.Close();
    }
    while (!dataDirectory.empty() && dataDirectory.back() == L'\\') dataDirectory.pop_back();
    return dataDirectory;
}

IniSettings ReadIniSettings() {
    IniSettings settings;
    settings.dataDirectory = ReadDataDirectory();
    Configuration agent;
    if (OpenSettingsKey(agent, AgentKeyPath())) {
        agent.Load(L"vixDiskLib.config.file", settings.userFile);
        agent.LoadDWORD(L"vixDiskLib.nfcFssrvr.TimeoutMs", settings.timeoutMs);
        agent.LoadDWORD(L"vixDiskLib.transport.LogLevel", settings.transportLogLevel);
        agent.LoadDWORD(L"Preserve vddk ini file", settings.preserve);
        agent.Close();
    }
    return settings;
}

bool FileExists(const wcstring &path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// key = "value" CR LF, in narrow (UTF-8) text.
std::string IniLine(const char *key, const std::string &value) {
    return std::string(key) + " = \"" + value + "\"\r\n";
}

void WriteText(HANDLE file, const std::string &text) {
    DWORD written = 0;
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

// Bounds on the search for a free default name: a folder that refuses every
// file (read-only, missing) must not keep the service's construction, and so
// every job, waiting for ever.
constexpr unsigned kMaxIniNames = 10000;       // names looked at, existing ones included
constexpr unsigned kMaxIniCreateFailures = 8;  // names that could not be created

// Creates the default file; false (logged, GetLastError kept) when it cannot be opened.
bool WriteDefaultIniFile(const wcstring &path, const IniSettings &settings) {
    skclass::UniqueFile file(CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                         nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        const DWORD error = GetLastError();
        SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::createVDDkIniFile() Could not create the vddk ini file '%s' Error: %d",
                     path.c_str(), static_cast<int>(error));
        SetLastError(error);
        return false;
    }
    WriteText(file.get(), IniLine("vixDiskLib.nfcFssrvr.TimeoutMs", std::to_string(settings.timeoutMs)));
    WriteText(file.get(), IniLine("vixDiskLib.transport.LogLevel", std::to_string(settings.transportLogLevel)));
    const wcstring tempDirectory = settings.dataDirectory + L"\\VMwareTemp";
    // An existing folder is fine, and VDDK makes do without one: the line is
    // written whatever the outcome.
    CreateDirectoryW(tempDirectory.c_str(), nullptr);
    WriteText(file.get(), IniLine("tmpDirectory", cstring::ToUtf8(tempDirectory)));
    return true;
}

}  // namespace

bool diskBroker::createVDDkIniFile(wcstring &iniPath) {
    IniSettings settings = ReadIniSettings();
    preserveIniFile = settings.preserve != 0;
    unsigned createFailures = 0;
    DWORD lastError = 0;
    for (unsigned counter = 0;; ++counter) {
        if (!settings.userFile.empty()) {
            if (FileExists(settings.userFile)) {
                iniPath = settings.userFile;
                preserveIniFile = true;  // never delete the administrator's file
                break;
            }
            SK_Zprintf_2(SK_SOURCE_FILE, 0,
                         L"diskBroker::createVDDkIniFile() Could not find the user specified vddk ini file '%s'. Error: %d. Forcing creation of a  default ini file.",
                         settings.userFile.c_str(), static_cast<int>(GetLastError()));
            settings.userFile.clear();
            continue;
        }
        if (counter >= kMaxIniNames || createFailures >= kMaxIniCreateFailures) {
            SK_Zprintf_2(SK_SOURCE_FILE, 0,
                         L"diskBroker::createVDDkIniFile() No vddk ini file could be created in the folder '%s' "
                         L"(%u names tried, last Windows error %u). Initializing VDDK without a configuration file.",
                         settings.dataDirectory.c_str(), counter, static_cast<unsigned>(lastError));
            preserveIniFile = false;
            return false;
        }
        const wcstring candidate = settings.dataDirectory + L"\\vddk-" + std::to_wstring(counter) + L".ini";
        if (FileExists(candidate)) {
            lastError = ERROR_FILE_EXISTS;
            continue;
        }
        if (WriteDefaultIniFile(candidate, settings)) {
            iniPath = candidate;
            break;
        }
        lastError = GetLastError();
        ++createFailures;
    }
    SK_Zprintf_2(SK_SOURCE_FILE, 0, L"diskBroker::createVDDkIniFile() using the ini file %s for initialization",
                 iniPath.c_str());
    return true;
}
