#!/bin/sh
# The README's main command: the demo on its defaults (in a folder of its own)
# runs its whole story and ends with the restored disk matching the source.
# usage: demo.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
set +e
"$run" "$tool" demo --dir "Z:$work\\demo" --size-mb 16 > "$work/out.txt" 2>&1
rc=$?
set -e
if [ "$rc" != 0 ] || ! grep -q '^MATCH: the restored disk is identical to the source.' "$work/out.txt"; then
    echo "demo: exit $rc"
    cat "$work/out.txt"
    exit 1
fi
grep -q '^5\. restored full.img into the new disk restored.vmdk' "$work/out.txt"
grep -q '^MATCH: the resumed backup is identical to the source.' "$work/out.txt"
echo "demo: ends with MATCH"
