// The stand-in's state: its inventory, sessions, scripts and journal, behind one lock.
#pragma once

#include <stdint.h>

#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <ravelkit/ravelkit_api.h>
#include <skclass_mini/handles.h>

namespace ravelsim {

struct Vm {
    std::string name, moRef, hostMoRef, powerState = "poweredOn", guestHostName, diskMode = "persistent";
    std::string hardwareVersion = "15";
    std::string hostText;  // replaces "name (<moRef>)" in the details when set
    bool ctSupported = true, ctEnabled = false;
    std::vector<std::string> disks, snapshots;
};

struct Host {
    std::string name, moRef;
    int16_t major = 7, minor = 0;
};

struct Task {
    std::string id, state = "queued", description, objectRef, objectType;
    int progress = 0;
};

struct Inventory {
    std::string server = "vcenter.example";
    std::string serverType = "VirtualCenter";
    std::map<std::string, std::string> accounts;  // user -> password
    std::vector<Host> hosts;
    std::vector<Vm> vms;
    std::set<std::string> extensions;
    std::vector<Task> tasks;
    int nextTask = 1;
};

struct Session {
    std::string url, user;
    bool loggedIn = false;
};

// What the last session was told (for the control queries).
struct Settings {
    int connectTimeoutMs = 0;
    bool acceptAnyCertificate = false;
    std::string url, user;
    std::vector<int> timeouts, preferences;
    int logLevel = -1;
};

Inventory DefaultInventory();

struct State {
    skclass::CriticalSection lock;  // guards everything below
    Inventory inventory = DefaultInventory();
    std::set<Session *> sessions;
    Settings settings;
    std::map<std::string, std::deque<int>> scripts;
    std::map<std::string, uint32_t> latencyUs;
    std::map<std::string, uint64_t> counts;
    std::vector<std::string> journal;
    std::string lastErrorText;
    int lastErrorCode = 0;
    vmcLoggerCallback logger = nullptr;
    std::wstring stateFile;  // where every change is written back; empty: nowhere
};

State &Get();
// Loads an inventory file; false when it cannot be read or has no <inventory>.
bool LoadInventoryFile(const wchar_t *path, Inventory &out);

// Writes the inventory as an inventory file (accounts left out: no password
// goes to a file). False when it cannot be written.
bool SaveInventoryFile(const Inventory &inventory, const wchar_t *path);
// After a change of the inventory (caller holds the lock): writes it to the
// state file, if one is set, so the next process finds the server as it was.
void Persist();

// Entry of every export: counts and journals the call, spends its latency, and
// returns true with *scripted set when a scripted result replaces the call.
bool EnterCall(const char *entry, const std::string &arguments, int *scripted);
// Sets the last vSphere error; returns result for `return Fail(...)`.
int Fail(int result, const std::string &text, int code);
// Sends one line through the installed logger (none: nothing), outside the lock.
void Log(const std::string &text);

// Under the lock (caller holds Get().lock):
Vm *FindVm(const std::string &nameOrMoRef);
Host *FindHost(const std::string &moRef);
Task *FindTask(const std::string &id);
bool ValidSession(void *session);

// "a, b, (null)" for the journal.
std::string Args(std::initializer_list<const char *> texts);
inline const char *Text(const char *s) { return s ? s : "(null)"; }

}  // namespace ravelsim

// For exports: journal, latency, scripted result (a void entry passes 0 for `ret`).
#define RAVELSIM_ENTER(args)                                        \
    do {                                                            \
        int scripted_ = 0;                                          \
        if (::ravelsim::EnterCall(__func__, (args), &scripted_))    \
            return scripted_;                                       \
    } while (0)

// The same for an entry that returns nothing.
#define RAVELSIM_ENTER_VOID(args)                                   \
    do {                                                            \
        int scripted_ = 0;                                          \
        if (::ravelsim::EnterCall(__func__, (args), &scripted_))    \
            return;                                                 \
    } while (0)
