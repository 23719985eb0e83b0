// The one gateway to <windows.h> for our code: fixed target version and lean
// headers, lower-case names so mingw's case-sensitive include search works.
#pragma once
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
