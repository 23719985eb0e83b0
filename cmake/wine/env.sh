# Shared Wine settings. WINEPREFIX defaults to a prefix inside the build folder
# (DISKBROKER_WINEPREFIX is exported by CTest for every test).
: "${WINEPREFIX:=${DISKBROKER_WINEPREFIX:-$PWD/wineprefix}}"
export WINEPREFIX
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
export WINEARCH=win64
WINE64=/usr/lib/wine/wine64
# Every Wine process starts with address-space randomization turned off.
# Debian's wine64 has no preloader, so Wine reserves the page of
# KUSER_SHARED_DATA (0x7ffe0000) only after the loader's brk heap exists; the
# kernel places that heap anywhere in the 1 GiB above the loader, and about one
# start in 7700 it covers that page: the process then exits with status 1
# before any Windows code runs, silently under WINEDEBUG=-all ("failed to map
# the shared user data: c0000018"). Without randomization the heap starts at
# the same address every time, 47 MiB below that page. Child processes inherit
# the setting.
WINE_LAUNCH="setarch $(uname -m) -R"
WINESERVER=/usr/lib/wine/wineserver
[ -x "$WINESERVER" ] || WINESERVER=$(command -v wineserver || echo /usr/lib/wine/wineserver64)
