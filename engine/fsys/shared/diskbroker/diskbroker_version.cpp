// The library's version, for agents that load it at run time.
#include <diskbroker_export.h>

#define DISKBROKER_WIDEN2(text) L##text
#define DISKBROKER_WIDEN(text) DISKBROKER_WIDEN2(text)

const wchar_t *diskBrokerVersion() { return DISKBROKER_WIDEN(DISKBROKER_VERSION_TEXT); }
