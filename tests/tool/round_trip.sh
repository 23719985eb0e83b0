#!/bin/sh
# Round trip through diskbroker.exe with qemu-img as the outside oracle:
# 1. a base + child chain made by qemu; a full backup equals qemu's raw view;
# 2. restore into a new disk: qemu-img compare says identical, check is clean;
# 3. the child changes; an incremental backup from a change list (two areas,
#    whitespace between elements), restored on top: identical again.
# usage: round_trip.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"

qemu-img create -q -f vmdk -o subformat=monolithicSparse base.vmdk 64M
qemu-io -f vmdk -c 'write -P 0xa1 0 24M' -c 'write -P 0xa2 40M 1M' base.vmdk >/dev/null
qemu-img create -q -f vmdk -b base.vmdk -F vmdk child.vmdk
qemu-io -f vmdk -c 'write -P 0xb1 8M 8M' -c 'write -P 0xb2 1049088 4096' \
        -c 'write -P 0xb3 62914560 512' child.vmdk >/dev/null

db backup child.vmdk full.img > backup.out
qemu-img convert -f vmdk -O raw child.vmdk child.raw
cmp child.raw full.img
grep -q '^extent 0 67108864 ' full.img.manifest
sha=$(sha256sum child.raw | cut -d' ' -f1)
grep -q "^stream $sha\$" full.img.manifest
grep -q '^statistics: VixDiskLib_Read(' backup.out
grep -Eq '^buffer depth: (reader|consumer)-bound' backup.out
echo "full backup: the image is qemu's raw view of the chain"

db restore full.img restored.vmdk > restore.out
grep -q '(created)' restore.out
grep -q '^statistics: VixDiskLib_Write(' restore.out
qemu-img compare -q -f vmdk -F vmdk child.vmdk restored.vmdk
qemu-img check -q -f vmdk restored.vmdk
echo "full restore: identical to the source, check clean"

qemu-io -f vmdk -c 'write -P 0xc1 12M 64k' -c 'write -P 0xc2 50M 2M' child.vmdk >/dev/null
cat > changes.xml <<'XML'
<?xml version="1.0" encoding="UTF-8"?>
<DiskChangeInfo>
  <area startoffset="0" startlength="33554432">
    <extent offset="12582912" length="65536"/>
  </area>
  <area startoffset="33554432" startlength="33554432">
    <extent offset="52428800" length="2097152"/>
  </area>
</DiskChangeInfo>
XML
db backup --changes changes.xml child.vmdk incr.img > /dev/null
test "$(grep -c '^extent ' incr.img.manifest)" = 2
qemu-img compare -q -f vmdk -F vmdk child.vmdk restored.vmdk && { echo "the change did not happen"; exit 1; }
db restore incr.img restored.vmdk > /dev/null
qemu-img compare -q -f vmdk -F vmdk child.vmdk restored.vmdk
qemu-img check -q -f vmdk restored.vmdk
echo "incremental backup and restore: identical to the changed source"
