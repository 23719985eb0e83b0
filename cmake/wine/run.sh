#!/usr/bin/env bash
# Runs a Windows program under Wine in the build tree's own prefix.
# Used as CMAKE_CROSSCOMPILING_EMULATOR; the prefix is created by prefix.sh.
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$here/env.sh"
exec $WINE_LAUNCH "$WINE64" "$@"
