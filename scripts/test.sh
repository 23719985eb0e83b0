#!/usr/bin/env bash
# Installs what is missing, builds everything for Windows x64 and runs the whole
# test suite under Wine. Usage: scripts/test.sh [extra ctest arguments]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
"$root/scripts/deps.sh"
cd "$root"
cmake --preset mingw >/dev/null
cmake --build build
cd build
ctest --output-on-failure -j2 "$@"
