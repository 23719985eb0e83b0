// Who a token belongs to, written the way the VDDK stand-in records callers.
#pragma once
#include <string>

#include <skclass_mini/win.h>

namespace dbtest {

// "DOMAIN\user", or the SID text where no name maps to the user (Wine, for an
// ImpersonateSelf token); empty when the token cannot be read.
std::string TokenUserText(HANDLE token);
// The same for the process token.
std::string ProcessUserText();
// The same for the calling thread's impersonation token; empty when it has none.
std::string ThreadUserText();

}  // namespace dbtest
