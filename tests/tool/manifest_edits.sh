#!/bin/sh
# Restore checks every field of the manifest against the image: a deleted
# extent line, an edited stream digest and a changed capacity each stop the
# restore with exit 3 instead of restoring part of the disk (or another size).
# usage: manifest_edits.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"

qemu-img create -q -f vmdk disk.vmdk 16M
qemu-io -f vmdk -c 'write -P 0x5a 1M 2M' -c 'write -P 0x6b 9M 1M' disk.vmdk >/dev/null
cat > list.xml <<'XML'
<DiskChangeInfo><area startoffset="0" startlength="16777216"><extent offset="1048576" length="2097152"/><extent offset="9437184" length="1048576"/></area></DiskChangeInfo>
XML
db backup --changes list.xml disk.vmdk good.img > /dev/null
for suffix in "" .meta .extents.xml; do cp "good.img$suffix" "bad.img$suffix"; done

grep -v '^extent 9437184 ' good.img.manifest > bad.img.manifest
check 3 'leaves out offset 9437184' err restore bad.img t1.vmdk
test ! -e t1.vmdk || { echo "a target was created for a manifest that lost an extent"; exit 1; }
echo "deleted extent line: exit 3, nothing written"

sed 's/^stream .*/stream 0000000000000000000000000000000000000000000000000000000000000000/' good.img.manifest > bad.img.manifest
check 3 'its manifest says 0000' err restore bad.img t2.vmdk
db info t2.vmdk | grep -q '^restore: *INCOMPLETE' || { echo "the target of a failed restore is not marked"; exit 1; }
db backup disk.vmdk whole.img > /dev/null
for suffix in "" .meta .extents.xml; do cp "whole.img$suffix" "bad.img$suffix"; done
sed 's/^stream .*/stream 1111111111111111111111111111111111111111111111111111111111111111/' whole.img.manifest > bad.img.manifest
check 3 'its manifest says 1111' err restore bad.img t2b.vmdk
for suffix in "" .meta .extents.xml; do cp "good.img$suffix" "bad.img$suffix"; done
echo "edited stream digest: exit 3, target marked incomplete (one extent or several)"

sed 's/^capacity .*/capacity 33554432/' good.img.manifest > bad.img.manifest
check 3 'is 16777216 bytes, its manifest says the disk had 33554432' err restore bad.img t3.vmdk
test ! -e t3.vmdk || { echo "a target was created with an edited capacity"; exit 1; }
echo "changed capacity: exit 3, nothing written"
