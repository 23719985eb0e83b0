#!/bin/sh
# diskbroker.exe's mount command, with qemu-img making the disk: a disk with a
# real MBR (two partitions): mount lists both volumes with their sizes, mounts
# and dismounts them on request, refuses a volume number the set does not have.
# (--ancestors: qemu_relink.sh.)
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
check 2 'the set has 2 volume(s)' err mount mbr.vmdk --mount 3
echo "mount: MBR volumes listed, mounted and dismounted"
