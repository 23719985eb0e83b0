#pragma once
#include <skclass_mini/export.h>
#include <skclass_mini/strings.h>

class SKCLASS_API Impersonator {
public:
    // "DOMAIN\user" of the calling thread: its impersonation token if it has one,
    // else the process token. Empty on failure.
    static wcstring WhoAmI();
};
