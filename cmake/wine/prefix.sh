#!/usr/bin/env bash
# prefix.sh start|stop PREFIX
# start: create the prefix once, then keep its wineserver persistent so that test
# processes neither pay Wine's start-up nor inherit CTest's pipes through Wine's
# service processes (which makes CTest wait for them). stop: end that wineserver.
set -u
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
action=$1
export WINEPREFIX=$2
. "$here/env.sh"
case "$action" in
  start)
    mkdir -p "$WINEPREFIX"
    # Detached from our stdout/stderr: Wine's services live on after this script.
    setsid "$WINESERVER" -p </dev/null >/dev/null 2>&1 &
    ready="$WINEPREFIX/.diskbroker-ready"
    if [ ! -f "$ready" ]; then
      # The registry files are flushed lazily by the persistent server, so the
      # marker, not system.reg, says that the prefix was made.
      setsid -w $WINE_LAUNCH "$WINE64" wineboot --init </dev/null >"$WINEPREFIX.log" 2>&1 \
        && [ -d "$WINEPREFIX/drive_c/windows" ] && touch "$ready"
    else
      setsid -w $WINE_LAUNCH "$WINE64" wineboot </dev/null >/dev/null 2>&1
    fi
    [ -f "$ready" ] || { echo "wine prefix was not created: see $WINEPREFIX.log"; exit 1; }
    echo "wine prefix ready: $WINEPREFIX"
    ;;
  stop)
    "$WINESERVER" -k >/dev/null 2>&1 || true
    echo "wine prefix stopped: $WINEPREFIX"
    ;;
  *) echo "usage: prefix.sh start|stop PREFIX"; exit 2 ;;
esac
