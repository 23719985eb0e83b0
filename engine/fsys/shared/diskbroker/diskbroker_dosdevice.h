// A DOS device definition (DefineDosDeviceW with a raw target path) owned for a
// scope: removed again, by exact match, unless the owner keeps it.
#pragma once

#include <skclass_mini/strings.h>
#include <skclass_mini/win.h>

namespace diskbroker_detail {

class DosDeviceDefinition {
public:
    DosDeviceDefinition() = default;
    ~DosDeviceDefinition() { Remove(); }
    DosDeviceDefinition(const DosDeviceDefinition &) = delete;
    DosDeviceDefinition &operator=(const DosDeviceDefinition &) = delete;

    // Defines name (e.g. "1:") as target. False with GetLastError() set.
    bool Define(const wcstring &name, const wcstring &target) {
        Remove();
        if (!DefineDosDeviceW(DDD_RAW_TARGET_PATH, name.c_str(), target.c_str())) return false;
        name_ = name;
        target_ = target;
        return true;
    }
    // Removes this definition only (one defined later over it stays), keeping
    // GetLastError().
    void Remove() {
        if (name_.empty()) return;
        const DWORD saved = GetLastError();
        DefineDosDeviceW(DDD_RAW_TARGET_PATH | DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE, name_.c_str(),
                         target_.c_str());
        SetLastError(saved);
        Release();
    }
    // The definition now belongs to whoever removes it explicitly.
    void Release() {
        name_.clear();
        target_.clear();
    }

private:
    wcstring name_;
    wcstring target_;
};

}  // namespace diskbroker_detail
