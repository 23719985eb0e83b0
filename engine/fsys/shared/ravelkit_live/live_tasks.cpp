// Tasks an extension shows in the server's task list (TaskManager.CreateTask)
// and drives itself: state, progress, description, cancel.
#include "live_served.h"
#include "live_soap.h"

namespace ravelkit_live {

namespace {

std::string Text(const char *text) { return text ? text : ""; }

// One call on a task; a task the server does not know is "not found".
int OnTask(void *session, const char *entry, const char *task, const wchar_t *method, const Arguments &more) {
    Session *s = SessionOf(session, entry);
    if (!s) return kBadSession;
    if (!task || !*task) return Fail(kBadArgument, std::string(entry) + ": no task");
    CXmlReader answer;
    const int result = Call(*s, method,
                            [&](CXmlBuilder &b) {
                                MoRef(b, L"_this", "Task", task);
                                if (more) more(b);
                            },
                            answer);
    int number = 0;
    std::string text;
    GetLastErrorText(text, number);
    if (result == kServerFault && number == kObjectNotFoundNumber)
        return Fail(kNotFound, std::string(entry) + ": no task " + task, kObjectNotFoundNumber);
    return result;
}

}  // namespace

// The task belongs to objectRef (of objectType); t3 is its type id, t4 the key
// of a parent task and t5 who started it (both optional).
int Served::vmcCreateTask(void *session, std::string &task, const char *objectRef, const char *objectType,
                          const char *t3, const char *t4, const char *t5, bool cancelable) {
    Session *s = SessionOf(session, "vmcCreateTask");
    if (!s) return kBadSession;
    if (!objectRef || !*objectRef || !objectType || !*objectType || !t3 || !*t3)
        return Fail(kBadArgument, "vmcCreateTask: a task needs an object, its type and a task type id");
    CXmlReader answer;
    const int result = Call(*s, L"CreateTask",
                            [&](CXmlBuilder &b) {
                                MoRef(b, L"_this", "TaskManager", s->content.taskManager);
                                MoRef(b, L"obj", objectType, objectRef);
                                Element(b, L"taskTypeId", t3);
                                if (t5 && *t5) Element(b, L"initiatedBy", t5);
                                Element(b, L"cancelable", cancelable ? "true" : "false");
                                if (t4 && *t4) Element(b, L"parentTaskKey", t4);
                            },
                            answer);
    if (result != kOk) return result;
    std::string created;
    if (!answer.SelectSingleNode(L"returnval") || !ChildText(answer, L"task", created) || created.empty())
        return Fail(kServerFault, "vmcCreateTask: the server returned no task", kOtherFaultNumber);
    task = created;
    Log("task " + created + " created for " + objectRef);
    return kOk;
}

int Served::vmcSetTaskState(void *session, const char *task, const char *state) {
    if (!state || !*state) return Fail(kBadArgument, "vmcSetTaskState: no state");
    return OnTask(session, "vmcSetTaskState", task, L"SetTaskState",
                  [&](CXmlBuilder &b) { Element(b, L"state", state); });
}

int Served::vmcUpdateTaskProgress(void *session, const char *task, int percent) {
    return OnTask(session, "vmcUpdateTaskProgress", task, L"UpdateProgress",
                  [&](CXmlBuilder &b) { Element(b, L"percentDone", std::to_string(percent)); });
}

// The message is shown as the task's description; t3, when given, is the key
// of the message in the extension's catalogue. t4 is not used.
int Served::vmcSetTaskDescription(void *session, const char *task, const char *message, const char *t3,
                                  const char *) {
    return OnTask(session, "vmcSetTaskDescription", task, L"SetTaskDescription", [&](CXmlBuilder &b) {
        b.StartElement(L"description");
        Element(b, L"key", t3 && *t3 ? t3 : "diskBroker.task.description");
        Element(b, L"message", Text(message));
        b.EndElement();
    });
}

int Served::vmcCancelTask(void *session, const char *task) {
    return OnTask(session, "vmcCancelTask", task, L"CancelTask", Arguments());
}

}  // namespace ravelkit_live
