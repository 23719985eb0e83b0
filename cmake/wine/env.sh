# Shared Wine settings. WINEPREFIX defaults to a prefix inside the build folder
# (DISKBROKER_WINEPREFIX is exported by CTest for every test).
: "${WINEPREFIX:=${DISKBROKER_WINEPREFIX:-$PWD/wineprefix}}"
export WINEPREFIX
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
export WINEARCH=win64
WINE64=/usr/lib/wine/wine64
WINESERVER=/usr/lib/wine/wineserver
[ -x "$WINESERVER" ] || WINESERVER=$(command -v wineserver || echo /usr/lib/wine/wineserver64)
