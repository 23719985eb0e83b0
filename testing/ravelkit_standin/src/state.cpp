// The stand-in's state, the per-call gate, the built-in inventory and the
// inventory file reader.
#include "state.h"

#include "ravelsim.h"

#include <stdlib.h>
#include <string.h>

#include <ravelkit/ravelkit_logger.h>
#include <skxml/xmlbuilder.h>
#include <skxml/xmlreader.h>

namespace ravelsim {
namespace {

std::string Narrow(const std::wstring &wide) {
    if (wide.empty()) return std::string();
    const int n = WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), static_cast<int>(wide.size()), nullptr, 0, nullptr,
                                      nullptr);
    std::string out(static_cast<size_t>(n), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), static_cast<int>(wide.size()), &out[0], n, nullptr, nullptr);
    return out;
}

std::string Attribute(const CXmlReader &reader, const wchar_t *name, const std::string &fallback = std::string()) {
    std::wstring value;
    return reader.GetAttribute(name, value) ? Narrow(value) : fallback;
}

bool Flag(const CXmlReader &reader, const wchar_t *name, bool fallback) {
    const std::string value = Attribute(reader, name);
    return value.empty() ? fallback : value != "0";
}

Vm ReadVm(CXmlReader &reader) {
    Vm vm;
    vm.name = Attribute(reader, L"name");
    vm.moRef = Attribute(reader, L"moRef", "vm-" + vm.name);
    vm.hostMoRef = Attribute(reader, L"host");
    vm.hostText = Attribute(reader, L"hostText");
    vm.powerState = Attribute(reader, L"powerState", vm.powerState);
    vm.guestHostName = Attribute(reader, L"guestHostName");
    vm.diskMode = Attribute(reader, L"diskMode", vm.diskMode);
    vm.hardwareVersion = Attribute(reader, L"hardwareVersion", vm.hardwareVersion);
    vm.ctSupported = Flag(reader, L"ctSupported", true);
    vm.ctEnabled = Flag(reader, L"ctEnabled", false);
    if (!reader.SelectFirstChild()) return vm;
    do {
        std::wstring node;
        reader.GetNodeName(node);
        if (node == L"disk") vm.disks.push_back(Attribute(reader, L"path"));
        if (node == L"snapshot") vm.snapshots.push_back(Attribute(reader, L"name"));
    } while (reader.SelectNextSibling());
    reader.SelectParent();
    return vm;
}

void ReadChild(CXmlReader &reader, Inventory &inv) {
    std::wstring node;
    reader.GetNodeName(node);
    if (node == L"account") {
        inv.accounts[Attribute(reader, L"user")] = Attribute(reader, L"password");
    } else if (node == L"host") {
        Host host;
        host.name = Attribute(reader, L"name");
        host.moRef = Attribute(reader, L"moRef");
        host.major = static_cast<int16_t>(atoi(Attribute(reader, L"major", "7").c_str()));
        host.minor = static_cast<int16_t>(atoi(Attribute(reader, L"minor", "0").c_str()));
        inv.hosts.push_back(host);
    } else if (node == L"vm") {
        inv.vms.push_back(ReadVm(reader));
    } else if (node == L"extension") {
        inv.extensions.insert(Attribute(reader, L"key"));
    } else if (node == L"task") {
        Task task;
        task.id = Attribute(reader, L"id");
        task.state = Attribute(reader, L"state", task.state);
        task.progress = atoi(Attribute(reader, L"progress", "0").c_str());
        task.description = Attribute(reader, L"description");
        inv.tasks.push_back(task);
    }
}

}  // namespace

State &Get() {
    static State state;  // plain data and a critical section: nothing to stop at unload
    return state;
}

Inventory DefaultInventory() {
    Inventory inv;
    inv.accounts["backup@vsphere.local"] = "Standin-Pass1";
    inv.hosts = {{"esx-01.example", "host-12", 7, 0}, {"esx-02.example", "host-13", 8, 0}};
    Vm web;
    web.name = "web01";
    web.moRef = "vm-42";
    web.hostMoRef = "host-12";
    web.guestHostName = "web01.example.com";
    web.disks = {"memdisk://web01-disk0?size=8388608&seed=42", "memdisk://web01-disk1?size=4194304&seed=43"};
    Vm db;
    db.name = "db01";
    db.moRef = "vm-43";
    db.hostMoRef = "host-13";
    db.powerState = "poweredOff";
    db.guestHostName = "db01.example.com";
    db.ctSupported = false;
    db.disks = {"memdisk://db01-disk0?size=4194304&seed=44"};
    inv.vms = {web, db};
    return inv;
}

bool LoadInventoryFile(const wchar_t *path, Inventory &out) {
    CXmlReader reader;
    if (!path || !reader.LoadFile(path) || !reader.SelectSingleNode(L"inventory")) return false;
    Inventory inv;
    inv.server = Attribute(reader, L"server", inv.server);
    inv.serverType = Attribute(reader, L"type", inv.serverType);
    if (reader.SelectFirstChild()) {
        do ReadChild(reader, inv);
        while (reader.SelectNextSibling());
    }
    if (inv.accounts.empty()) inv.accounts = DefaultInventory().accounts;  // state files hold no passwords
    for (const Task &t : inv.tasks) {
        const int n = atoi(t.id.c_str() + (t.id.rfind('-') == std::string::npos ? 0 : t.id.rfind('-') + 1));
        if (n >= inv.nextTask) inv.nextTask = n + 1;
    }
    out = std::move(inv);
    return true;
}

namespace {

std::wstring WideText(const std::string &utf8) {
    if (utf8.empty()) return std::wstring();
    const int n = MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(n), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), static_cast<int>(utf8.size()), &out[0], n);
    return out;
}

void Put(CXmlBuilder &xml, const wchar_t *name, const std::string &value) { xml.AddAttribute(name, WideText(value)); }

void WriteVm(CXmlBuilder &xml, const Vm &vm) {
    xml.StartElement(L"vm");
    Put(xml, L"name", vm.name);
    Put(xml, L"moRef", vm.moRef);
    Put(xml, L"host", vm.hostMoRef);
    Put(xml, L"powerState", vm.powerState);
    Put(xml, L"guestHostName", vm.guestHostName);
    Put(xml, L"diskMode", vm.diskMode);
    Put(xml, L"hardwareVersion", vm.hardwareVersion);
    Put(xml, L"ctSupported", vm.ctSupported ? "1" : "0");
    Put(xml, L"ctEnabled", vm.ctEnabled ? "1" : "0");
    if (!vm.hostText.empty()) Put(xml, L"hostText", vm.hostText);
    for (const std::string &disk : vm.disks) {
        xml.StartElement(L"disk");
        Put(xml, L"path", disk);
        xml.EndElement();
    }
    for (const std::string &snapshot : vm.snapshots) {
        xml.StartElement(L"snapshot");
        Put(xml, L"name", snapshot);
        xml.EndElement();
    }
    xml.EndElement();
}

}  // namespace

bool SaveInventoryFile(const Inventory &inv, const wchar_t *path) {
    CXmlBuilder xml;
    xml.StartElement(L"inventory");
    Put(xml, L"server", inv.server);
    Put(xml, L"type", inv.serverType);
    for (const Host &host : inv.hosts) {
        xml.StartElement(L"host");
        Put(xml, L"name", host.name);
        Put(xml, L"moRef", host.moRef);
        Put(xml, L"major", std::to_string(host.major));
        Put(xml, L"minor", std::to_string(host.minor));
        xml.EndElement();
    }
    for (const Vm &vm : inv.vms) WriteVm(xml, vm);
    for (const std::string &key : inv.extensions) {
        xml.StartElement(L"extension");
        Put(xml, L"key", key);
        xml.EndElement();
    }
    for (const Task &task : inv.tasks) {
        xml.StartElement(L"task");
        Put(xml, L"id", task.id);
        Put(xml, L"state", task.state);
        Put(xml, L"progress", std::to_string(task.progress));
        Put(xml, L"description", task.description);
        xml.EndElement();
    }
    xml.EndElement();
    return xml.SaveUtf8(path);
}

// Written beside the state file and moved over it, so a run killed while it
// saves (the killed-run tests kill runs at any point) leaves the old inventory
// or the new one for the next run, never part of one. The name is the
// process's own: two runs may share one state file.
void Persist() {
    State &s = Get();
    if (s.stateFile.empty()) return;
    const std::wstring saving = s.stateFile + L"." + std::to_wstring(GetCurrentProcessId()) + L".saving";
    if (SaveInventoryFile(s.inventory, saving.c_str()) &&
        MoveFileExW(saving.c_str(), s.stateFile.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return;
    DeleteFileW(saving.c_str());
}

bool EnterCall(const char *entry, const std::string &arguments, int *scripted) {
    State &s = Get();
    uint32_t latency = 0;
    bool replaced = false;
    {
        skclass::CsLock hold(s.lock);
        ++s.counts[entry];
        s.journal.push_back(std::string(entry) + " thread=" + std::to_string(GetCurrentThreadId()) + " (" + arguments +
                            ")");
        auto l = s.latencyUs.find(entry);
        if (l != s.latencyUs.end()) latency = l->second;
        auto script = s.scripts.find(entry);
        if (script != s.scripts.end() && !script->second.empty()) {
            *scripted = script->second.front();
            script->second.pop_front();
            replaced = *scripted != RAVELSIM_REAL;
        }
    }
    // The stand-in's own latency, not a wait of the system under test.
    if (latency) Sleep((latency + 999) / 1000);
    return replaced;
}

int Fail(int result, const std::string &text, int code) {
    State &s = Get();
    skclass::CsLock hold(s.lock);
    s.lastErrorText = text;
    s.lastErrorCode = code;
    return result;
}

void Log(const std::string &text) {
    vmcLoggerCallback logger;
    {
        skclass::CsLock hold(Get().lock);
        logger = Get().logger;
    }
    if (logger) ravelkit::CallLogger(logger, "%s", text.c_str());
}

Vm *FindVm(const std::string &nameOrMoRef) {
    for (Vm &vm : Get().inventory.vms)
        if (vm.name == nameOrMoRef || vm.moRef == nameOrMoRef) return &vm;
    return nullptr;
}

Host *FindHost(const std::string &moRef) {
    for (Host &host : Get().inventory.hosts)
        if (host.moRef == moRef) return &host;
    return nullptr;
}

Task *FindTask(const std::string &id) {
    for (Task &task : Get().inventory.tasks)
        if (task.id == id) return &task;
    return nullptr;
}

bool ValidSession(void *session) { return Get().sessions.count(static_cast<Session *>(session)) != 0; }

std::string Args(std::initializer_list<const char *> texts) {
    std::string out;
    bool first = true;
    for (const char *t : texts) {
        if (!first) out += ", ";
        out += Text(t);
        first = false;
    }
    return out;
}

}  // namespace ravelsim
