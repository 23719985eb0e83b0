// Export macro of diskBroker.dll: exported when building the library, imported
// by everything that links it.
#pragma once
#if defined(DISKBROKER_BUILD)
#define DISKBROKER_API __declspec(dllexport)
#else
#define DISKBROKER_API __declspec(dllimport)
#endif

#ifdef __cplusplus
extern "C" {
#endif
// The library's version ("major.minor.patch"), for agents that load it at run
// time. Static text; never null.
DISKBROKER_API const wchar_t *diskBrokerVersion();
#ifdef __cplusplus
}
#endif
