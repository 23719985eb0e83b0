#!/bin/sh
# The README's main command: the demo on its defaults (in a folder of its own)
# runs its whole story and ends with the restored disk matching the source.
# usage: demo.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
check 0 '^MATCH: the restored disk is identical to the source.' out demo --dir "Z:$work\\demo" --size-mb 16
grep -q '^5\. restored full.img into the new disk restored.vmdk' out.txt
grep -q '^MATCH: the resumed backup is identical to the source.' out.txt
echo "demo: ends with MATCH"
