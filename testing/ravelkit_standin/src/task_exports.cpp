// The stand-in's task and event-extension entry points.
#include "state.h"

using namespace ravelsim;

namespace {
constexpr int kBadArgument = 3;
constexpr int kBadSession = 5;
constexpr int kNotFound = 2;
constexpr int kAlreadyExists = 23;

// The task for an entry point; null with the failure in *result.
Task *TaskFor(void *session, const char *id, int *result) {
    if (!ValidSession(session)) {
        *result = kBadSession;
        return nullptr;
    }
    Task *task = FindTask(id ? id : "");
    if (!task) {
        Get().lastErrorText = std::string("no task ") + Text(id);
        Get().lastErrorCode = 25;
        *result = kNotFound;
    }
    return task;
}
}  // namespace

extern "C" {

int vmcCreateTask(void *session, std::string &task, const char *objectRef, const char *objectType, const char *t3,
                  const char *t4, const char *t5, bool cancelable) {
    RAVELSIM_ENTER(Args({objectRef, objectType, t3, t4, t5, cancelable ? "cancelable" : "-"}));
    skclass::CsLock hold(Get().lock);
    if (!ValidSession(session)) return kBadSession;
    if (!objectRef || !*objectRef) return Fail(kBadArgument, "a task needs an object", 0);
    Inventory &inv = Get().inventory;
    Task created;
    created.id = "task-" + std::to_string(inv.nextTask++);
    created.objectRef = objectRef;
    created.objectType = Text(objectType);
    created.description = Text(t3);
    inv.tasks.push_back(created);
    Persist();
    task = created.id;
    return 0;
}

int vmcCancelTask(void *session, const char *id) {
    RAVELSIM_ENTER(Args({id}));
    skclass::CsLock hold(Get().lock);
    int result = 0;
    Task *task = TaskFor(session, id, &result);
    if (!task) return result;
    task->state = "cancelled";
    Persist();
    return 0;
}

int vmcSetTaskState(void *session, const char *id, const char *state) {
    RAVELSIM_ENTER(Args({id, state}));
    skclass::CsLock hold(Get().lock);
    int result = 0;
    Task *task = TaskFor(session, id, &result);
    if (!task) return result;
    task->state = Text(state);
    Persist();
    return 0;
}

int vmcUpdateTaskProgress(void *session, const char *id, int percent) {
    RAVELSIM_ENTER(Args({id, std::to_string(percent).c_str()}));
    skclass::CsLock hold(Get().lock);
    int result = 0;
    Task *task = TaskFor(session, id, &result);
    if (!task) return result;
    if (percent < 0 || percent > 100) return Fail(kBadArgument, "progress out of range", 0);
    task->progress = percent;
    Persist();
    return 0;
}

int vmcSetTaskDescription(void *session, const char *id, const char *message, const char *t3, const char *t4) {
    RAVELSIM_ENTER(Args({id, message, t3, t4}));
    skclass::CsLock hold(Get().lock);
    int result = 0;
    Task *task = TaskFor(session, id, &result);
    if (!task) return result;
    task->description = Text(message);
    Persist();
    return 0;
}

int vmcIsEventExtensionRegistered(void *session, const char *key, bool *registered) {
    RAVELSIM_ENTER(Args({key}));
    skclass::CsLock hold(Get().lock);
    if (!ValidSession(session)) return kBadSession;
    if (!registered || !key) return kBadArgument;
    *registered = Get().inventory.extensions.count(key) != 0;
    return 0;
}

int vmcRegisterEventExtension(void *session, const char *key, const char *t2, const char *t3, const char *t4,
                              const char *t5, const char *t6, const char *t7, const char *t8, const char *t9,
                              const char *t10, const char *t11, const char *t12, const char *t13, int64_t number) {
    RAVELSIM_ENTER(Args({key, t2, t3, t4, t5, t6, t7, t8, t9, t10, t11, t12, t13, std::to_string(number).c_str()}));
    skclass::CsLock hold(Get().lock);
    if (!ValidSession(session)) return kBadSession;
    if (!key || !*key) return kBadArgument;
    if (!Get().inventory.extensions.insert(key).second)
        return Fail(kAlreadyExists, std::string("extension ") + key + " already registered", 0);
    Persist();
    return 0;
}

int vmcUnregisterEventExtension(void *session, const char *key) {
    RAVELSIM_ENTER(Args({key}));
    skclass::CsLock hold(Get().lock);
    if (!ValidSession(session)) return kBadSession;
    if (!key || Get().inventory.extensions.erase(key) == 0)
        return Fail(kNotFound, std::string("no extension ") + Text(key), 0);
    Persist();
    return 0;
}

}  // extern "C"

namespace ravelsim {

// "task:<id>" for RavelSim_Query (caller holds the lock).
bool TaskText(const std::string &id, std::string &out) {
    const Task *task = FindTask(id);
    if (!task) return false;
    out = task->state + "|" + std::to_string(task->progress) + "|" + task->description + "|" + task->objectRef + "|" +
          task->objectType;
    return true;
}

}  // namespace ravelsim
