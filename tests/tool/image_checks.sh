#!/bin/sh
# What backup writes beside an image and what restore checks against it:
# 1. change-list extents that are not whole sectors are widened to the sectors
#    that hold them, for backup and restore alike: every listed byte is copied;
# 2. an image whose data no longer matches its manifest fails loudly (exit 3,
#    the extent named); a damaged or missing manifest is refused (exit 1);
# 3. every field of the manifest is checked against the image: a deleted
#    extent line, an edited stream digest and a changed capacity each stop the
#    restore with exit 3 instead of restoring part of the disk (or another size).
# usage: image_checks.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
# list <offset> <length>...: a change list of one area with these extents.
list() {
    printf '<DiskChangeInfo><area startoffset="0" startlength="16777216">'
    while [ $# -gt 0 ]; do printf '<extent offset="%s" length="%s"/>' "$1" "$2"; shift 2; done
    printf '</area></DiskChangeInfo>\n'
}
# copied <image>: bad.img and the files beside it made copies of the image's.
copied() { for suffix in "" .meta .extents.xml .manifest; do cp "$1$suffix" "bad.img$suffix"; done; }
# edited <exit code> <pattern> <sed script> <target>: restores bad.img with
# good.img's manifest edited by the script.
edited() {
    sed "$3" good.img.manifest > bad.img.manifest
    check "$1" "$2" err restore bad.img "$4"
}

qemu-img create -q -f vmdk disk.vmdk 16M
qemu-io -f vmdk -c 'write -P 0x5a 1M 2M' -c 'write -P 0x6b 9M 1M' disk.vmdk >/dev/null
qemu-img convert -f vmdk -O raw disk.vmdk disk.raw

list 1049088 1000 9437184 100 > partial.xml
db backup --changes partial.xml disk.vmdk partial.img > /dev/null
grep -q '^extent 1049088 1024 ' partial.img.manifest || { echo "512+1000 not widened:"; cat partial.img.manifest; exit 1; }
grep -q '^extent 9437184 512 ' partial.img.manifest || { echo "0+100 backed up nothing:"; cat partial.img.manifest; exit 1; }
cmp -n 1024 -i 1049088 disk.raw partial.img
cmp -n 512 -i 9437184 disk.raw partial.img
echo "backup: partial sectors widened, every listed byte in the image"

list 1048576 2097152 9437184 1048576 > list.xml
db backup --changes list.xml disk.vmdk good.img > /dev/null
list 1048676 10 > ten.xml
check 0 '1 range, 512 B written' out restore --changes ten.xml good.img part.vmdk
qemu-img convert -f vmdk -O raw part.vmdk part.raw
cmp -n 512 -i 1048576 disk.raw part.raw
echo "restore: partial sectors widened, the listed bytes written"

copied good.img
# One byte inside the second extent.
printf '\001' | dd of=bad.img bs=1 seek=9437700 conv=notrunc 2>/dev/null
check 3 'checksum mismatch in extent 2' err restore bad.img target.vmdk
grep -q 'must not be used' err.txt
echo "changed image data: exit 3, extent 2 named"

cp good.img bad.img
edited 1 'reaches past the capacity' 's/^capacity .*/capacity 1048576/' t0.vmdk
test ! -e t0.vmdk
rm bad.img.manifest
check 1 'bad.img.manifest.*does not exist' err restore bad.img t0.vmdk
echo "damaged or missing manifest: exit 1, nothing created"

edited 3 'leaves out offset 9437184' '/^extent 9437184 /d' t1.vmdk
test ! -e t1.vmdk || { echo "a target was created for a manifest that lost an extent"; exit 1; }
echo "deleted extent line: exit 3, nothing written"

edited 3 'its manifest says 0000' 's/^stream .*/stream 0000000000000000000000000000000000000000000000000000000000000000/' t2.vmdk
db info t2.vmdk | grep -q '^restore: *INCOMPLETE' || { echo "the target of a failed restore is not marked"; exit 1; }
db backup disk.vmdk whole.img > /dev/null
copied whole.img
sed 's/^stream .*/stream 1111111111111111111111111111111111111111111111111111111111111111/' whole.img.manifest > bad.img.manifest
check 3 'its manifest says 1111' err restore bad.img t2b.vmdk
echo "edited stream digest: exit 3, target marked incomplete (one extent or several)"

copied good.img
edited 3 'is 16777216 bytes, its manifest says the disk had 33554432' 's/^capacity .*/capacity 33554432/' t3.vmdk
test ! -e t3.vmdk || { echo "a target was created with an edited capacity"; exit 1; }
echo "changed capacity: exit 3, nothing written"
