// The demo's last chapter: a backup stopped hard part-way, then resumed.
#pragma once
#include <string>

#include "caches.h"
#include "job.h"

namespace dbtool {

// Backs disk up into dir\resumed.img with --resume dir\resume-state in a
// second diskbroker process that --stop-after ends hard a third of the way
// in, resumes it here, and checks the image against sourceSha (the SHA-256 of
// the whole disk). vddk is the --vddk word the demo was given.
void TellResumedBackup(Job &job, const CacheTuning &tuning, const std::wstring &dir, const std::wstring &disk,
                       uint64_t diskBytes, const std::wstring &sourceSha, const std::wstring &vddk);

}  // namespace dbtool
