#!/usr/bin/env bash
# prefix.sh start PREFIX [DESKTOP_KEEPER] | stop PREFIX
# start: create the prefix once, then keep its wineserver persistent so that test
# processes neither pay Wine's start-up nor inherit CTest's pipes through Wine's
# service processes (which makes CTest wait for them). With the keeper program,
# the desktop process is started here too, for the same reason. stop: end that
# wineserver (and with it every process of the prefix).
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
    keeper=${3:-}
    if [ -n "$keeper" ]; then
        # Its "ready" comes through a FIFO of our own; it and the desktop process
        # it starts hold nothing of CTest's.
        fifo=$(mktemp -u "$WINEPREFIX.keeper.XXXXXX")
        mkfifo "$fifo"
        setsid $WINE_LAUNCH "$WINE64" "$keeper" </dev/null >"$fifo" 2>/dev/null &
        line=$(timeout 120 head -n 1 "$fifo" | tr -d "\r" || true)
        rm -f "$fifo"
        [ "$line" = ready ] || { echo "the desktop keeper did not start"; exit 1; }
    fi
    echo "wine prefix ready: $WINEPREFIX"
    ;;
  stop)
    "$WINESERVER" -k >/dev/null 2>&1 || true
    echo "wine prefix stopped: $WINEPREFIX"
    ;;
  *) echo "usage: prefix.sh start PREFIX [DESKTOP_KEEPER] | stop PREFIX"; exit 2 ;;
esac
