#!/bin/sh
# A restore that stops half-way leaves its target marked incomplete (info says
# so, though qemu-img check is clean); a re-run from the same image completes
# it and writes the holes as holes, so the disk stays as sparse as a fresh one.
# usage: interrupted_restore.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"

qemu-img create -q -f vmdk disk.vmdk 32M
qemu-io -f vmdk -c 'write -P 0x5a 1M 2M' -c 'write -P 0x6b 20M 1M' disk.vmdk >/dev/null
db backup disk.vmdk good.img > /dev/null
for suffix in "" .meta .extents.xml .manifest; do cp "good.img$suffix" "img$suffix"; done
# Damage past the first data: the restore writes it, then fails the extent.
printf '\001' | dd of=img bs=1 seek=20971777 conv=notrunc 2>/dev/null

check 3 'checksum mismatch' err restore img target.vmdk
qemu-img check -q -f vmdk target.vmdk
db info target.vmdk > info.txt
grep -q '^restore: *INCOMPLETE' info.txt || { echo "the stopped restore left no mark"; cat info.txt; exit 1; }
echo "stopped restore: the target says it is incomplete"

cp good.img img
db restore img target.vmdk > /dev/null
qemu-img compare -q -f vmdk -F vmdk disk.vmdk target.vmdk
db info target.vmdk | grep -q '^restore: *complete'
db restore good.img fresh.vmdk > /dev/null
rerun=$(stat -c %s target.vmdk)
fresh=$(stat -c %s fresh.vmdk)
if [ "$rerun" -gt $((fresh + 1048576)) ]; then
    echo "the re-run wrote zeros over holes: $rerun bytes against $fresh for a fresh restore"
    exit 1
fi
echo "re-run: complete, identical, as sparse as a fresh restore ($rerun vs $fresh bytes)"
