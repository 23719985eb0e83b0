#!/bin/sh
# diskbroker.exe's mount command and --ancestors, with qemu-img as the oracle:
# 1. a disk with a real MBR (two partitions): mount lists both volumes with
#    their sizes, mounts and dismounts them on request, refuses a volume number
#    the set does not have;
# 2. a qemu chain whose parent was moved to another folder: backup fails
#    without --ancestors and, with it, equals qemu's raw view of the chain made
#    before the move.
# usage: tool_chains.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"

qemu-img create -q -f raw mbr.raw 16M
# Two primary partitions: NTFS at 2048 (4096 sectors), Linux at 8192 (8192 sectors).
printf '\000\000\000\000\007\000\000\000\000\010\000\000\000\020\000\000' |
    dd of=mbr.raw bs=1 seek=446 conv=notrunc status=none
printf '\000\000\000\000\203\000\000\000\000\040\000\000\000\040\000\000' |
    dd of=mbr.raw bs=1 seek=462 conv=notrunc status=none
printf '\125\252' | dd of=mbr.raw bs=1 seek=510 conv=notrunc status=none
qemu-img convert -f raw -O vmdk -o subformat=monolithicSparse mbr.raw mbr.vmdk

db mount mbr.vmdk > list.out
grep -q '^volumes: 2$' list.out
grep -q '^  1: basic partition, 2.0 MiB, not mounted$' list.out
grep -q '^  2: basic partition, 4.0 MiB, not mounted$' list.out
db mount mbr.vmdk --mount all > mount.out
grep -q '^  1: basic partition, 2.0 MiB, mounted at \\\\.\\vstor2-mntapi10-shared-' mount.out
grep -q '^  2: dismounted$' mount.out
db mount mbr.vmdk --mount 2 > one.out
grep -q '^  1: basic partition, 2.0 MiB, not mounted$' one.out
grep -q '^  2: basic partition, 4.0 MiB, mounted at ' one.out
status=0
db mount mbr.vmdk --mount 3 > /dev/null 2>&1 || status=$?
[ "$status" = 2 ] || { echo "volume 3 of 2 gave exit $status"; exit 1; }
echo "mount: MBR volumes listed, mounted and dismounted"

mkdir made base delta
qemu-img create -q -f vmdk -o subformat=monolithicSparse made/disk.vmdk 16M
qemu-io -f vmdk -c 'write -P 0xa1 0 12M' made/disk.vmdk >/dev/null
qemu-img create -q -f vmdk -o subformat=monolithicSparse -b disk.vmdk -F vmdk made/disk-000001.vmdk
qemu-io -f vmdk -c 'write -P 0xb2 4M 2M' made/disk-000001.vmdk >/dev/null
qemu-img convert -f vmdk -O raw made/disk-000001.vmdk chain.raw
cp made/disk.vmdk base/
cp made/disk-000001.vmdk delta/
status=0
db backup delta/disk-000001.vmdk lost.img > /dev/null 2>&1 || status=$?
[ "$status" = 1 ] || { echo "a chain without its parent gave exit $status"; exit 1; }
db backup delta/disk-000001.vmdk chain.img --ancestors base > backup.out
cmp chain.raw chain.img
qemu-img check -q -U --image-opts \
    "driver=vmdk,file.filename=delta/disk-000001.vmdk,backing.driver=vmdk,backing.file.filename=base/disk.vmdk"
echo "backup --ancestors: the moved chain reads as made"
