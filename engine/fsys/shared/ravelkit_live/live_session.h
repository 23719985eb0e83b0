// A session of the client: its channel, what the server's service content
// names, the last vSphere error, and the log callback. Results of the entry
// points are the library's own small numbers below.
#pragma once
#include <string>
#include <ravelkit/ravelkit_api.h>
#include <skclass_mini/handles.h>
#include "live_http.h"

namespace ravelkit_live {

enum Result : int {
    kOk = 0,
    kNotSupported = 1,
    kNotFound = 2,
    kBadArgument = 3,
    kCannotConnect = 4,
    kBadSession = 5,
    kLoginRefused = 35,
    kServerFault = 36,  // a vSphere fault: its text and number are the last error
    kSnapshotNotFound = 53,
};

// The vSphere error numbers the last error carries for the faults a caller
// tells apart; any other fault carries kOtherFaultNumber.
const int kInvalidLoginNumber = 185;
const int kObjectNotFoundNumber = 25;
const int kOtherFaultNumber = 1;

struct ServiceContent {
    std::string rootFolder, propertyCollector, viewManager, sessionManager, searchIndex, taskManager,
        extensionManager, eventManager, apiType, apiVersion;
};

struct Session {
    HttpChannel channel;
    ServiceContent content;
    std::string url;
    bool loggedIn = false;
    int taskTimeoutMs = 600000;  // how long a task is waited for
    int logLevel = 0;
    std::string vmView;
};

// Validates a session pointer against those this process opened.
Session *Checked(void *session);
void Remember(Session *session);
void Forget(Session *session);

// The last error, per process as the interface has it (no session needed to read it).
void SetLastError(const std::string &text, int number);
void GetLastErrorText(std::string &text, int &number);
int Fail(int result, const std::string &text, int number = 0);

// The library's log through the caller's callback; one line, no secrets.
void SetLogger(vmcLoggerCallback logger);
void Log(const std::string &line);

}  // namespace ravelkit_live
