#!/usr/bin/env bash
# Installs what is missing, builds, and runs the command-line program's demo
# under Wine on the built-in defaults (the VDDK stand-in).
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/deps.sh"
cd "$root"
cmake --preset mingw >/dev/null
cmake --build build --target diskbroker
export DISKBROKER_WINEPREFIX="$root/build/wineprefix"
"$root/cmake/wine/prefix.sh" start "$DISKBROKER_WINEPREFIX" >/dev/null
trap '"$root/cmake/wine/prefix.sh" stop "$DISKBROKER_WINEPREFIX" >/dev/null' EXIT
"$root/cmake/wine/run.sh" "$root/build/bin/diskbroker.exe" demo "$@"
