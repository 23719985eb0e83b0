#!/bin/sh
# Ctrl-C (Wine turns SIGINT into CTRL_C_EVENT) ends a backup and a restore
# cleanly: exit 1 with the reason, no manifest for the backup, the restore's
# target marked incomplete, and the registry left alone.
# usage: ctrl_c.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
source="memdisk://cc?size=536870912&seed=2"
# interrupted <label> <arguments...>: runs the tool, sends SIGINT when its
# progress reaches 25% (read from a FIFO, no polling), expects exit 1.
interrupted() {
    label=$1
    shift
    rm -f out.fifo
    mkfifo out.fifo
    "$run" "$tool" "$@" > out.fifo 2> err.txt &
    child=$!
    exec 3< out.fifo
    while IFS= read -r line <&3; do
        case "$line" in "$label: 25%"*) kill -INT "$child"; break ;; esac
    done
    cat <&3 > /dev/null
    exec 3<&-
    set +e
    wait "$child"
    rc=$?
    set -e
    if [ "$rc" != 1 ] || ! grep -q 'was interrupted (Ctrl-C)' err.txt; then
        echo "$label: expected exit 1 and the interruption named, got exit $rc"
        cat err.txt
        exit 1
    fi
}

db backup "$source" full.img > /dev/null
interrupted restore restore full.img target.vmdk
db info target.vmdk | grep -q '^restore: *INCOMPLETE' || { echo "the interrupted restore left no mark"; exit 1; }
echo "Ctrl-C in a restore: exit 1, the target says it is incomplete"

interrupted backup backup "$source" cut.img
test ! -e cut.img.manifest || { echo "the interrupted backup wrote a manifest"; exit 1; }
echo "Ctrl-C in a backup: exit 1, no manifest"
