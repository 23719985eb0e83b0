#!/bin/sh
# Change-list extents that are not whole sectors are widened to the sectors
# that hold them, for backup and restore alike: every listed byte is copied.
# usage: change_rounding.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
list() {
    printf '<DiskChangeInfo><area startoffset="0" startlength="4194304"><extent offset="%s" length="%s"/></area></DiskChangeInfo>\n' "$1" "$2"
}

qemu-img create -q -f vmdk disk.vmdk 4M
qemu-io -f vmdk -c 'write -P 0x77 0 8192' disk.vmdk >/dev/null
qemu-img convert -f vmdk -O raw disk.vmdk disk.raw

list 512 1000 > a.xml
db backup --changes a.xml disk.vmdk a.img > /dev/null
grep -q '^extent 512 1024 ' a.img.manifest || { echo "512+1000 not widened:"; cat a.img.manifest; exit 1; }
cmp -n 1024 -i 512 disk.raw a.img
list 0 100 > b.xml
db backup --changes b.xml disk.vmdk b.img > /dev/null
grep -q '^extent 0 512 ' b.img.manifest || { echo "0+100 backed up nothing:"; cat b.img.manifest; exit 1; }
cmp -n 512 disk.raw b.img
echo "backup: partial sectors widened, every listed byte in the image"

db backup disk.vmdk full.img > /dev/null
list 100 10 > c.xml
db restore --changes c.xml full.img target.vmdk > out.txt
grep -q '1 range, 512 B written' out.txt || { echo "restore of 100+10:"; cat out.txt; exit 1; }
qemu-img convert -f vmdk -O raw target.vmdk target.raw
cmp -n 512 disk.raw target.raw
echo "restore: partial sectors widened, the listed bytes written"
