#!/bin/sh
# A restore from an image whose data no longer matches its manifest fails
# loudly (exit 3, the extent named) and a damaged manifest is refused (exit 1).
# usage: checksum_mismatch.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"

qemu-img create -q -f vmdk disk.vmdk 16M
qemu-io -f vmdk -c 'write -P 0x5a 1M 2M' -c 'write -P 0x6b 9M 1M' disk.vmdk >/dev/null
cat > list.xml <<'XML'
<DiskChangeInfo><area startoffset="0" startlength="16777216"><extent offset="1048576" length="2097152"/><extent offset="9437184" length="1048576"/></area></DiskChangeInfo>
XML
db backup --changes list.xml disk.vmdk good.img > /dev/null
cp good.img bad.img
cp good.img.manifest bad.img.manifest
cp good.img.meta bad.img.meta
cp good.img.extents.xml bad.img.extents.xml
# One byte inside the second extent.
printf '\001' | dd of=bad.img bs=1 seek=9437700 conv=notrunc 2>/dev/null
check 3 'checksum mismatch in extent 2' err restore bad.img target.vmdk
grep -q 'must not be used' err.txt
echo "changed image data: exit 3, extent 2 named"

sed 's/^capacity .*/capacity 1048576/' good.img.manifest > bad.img.manifest
cp good.img bad.img
check 1 'reaches past the capacity' err restore bad.img target2.vmdk
test ! -e target2.vmdk
rm bad.img.manifest
check 1 'bad.img.manifest.*does not exist' err restore bad.img target2.vmdk
echo "damaged or missing manifest: exit 1, nothing created"
