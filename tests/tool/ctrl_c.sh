#!/bin/sh
# Ctrl-C (Wine turns SIGINT into CTRL_C_EVENT) ends a backup and a restore
# cleanly: exit 1 with the reason, no manifest for the backup, the restore's
# target marked incomplete, and the registry left alone.
# usage: ctrl_c.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
source="memdisk://cc?size=536870912&seed=2"
# interrupted <label> <arguments...>: runs the tool, sends SIGINT when its
# progress reaches 25%, expects exit 1 and the interruption named.
interrupted() {
    label=$1
    shift
    rm -f run.txt
    signal_when INT "$label: 25%*" run.txt "$@" || { echo "$label: the run never reached 25%"; cat run.txt; exit 1; }
    if [ "$rc" != 1 ] || ! grep -q 'was interrupted (Ctrl-C)' run.txt; then
        echo "$label: expected exit 1 and the interruption named, got exit $rc"
        cat run.txt
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
