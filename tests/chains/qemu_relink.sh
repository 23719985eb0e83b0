#!/bin/sh
# Local chain relinking checked against qemu-img, the outside oracle:
# chains of two and three levels made by qemu (different data per level) are
# copied into separate folders, where their relative parent links no longer
# lead anywhere; VixDiskLib_OpenLocal relinks them, and then
# 1. the service (through the VDDK stand-in) reads what qemu read before the move;
# 2. qemu reads the same when told where each parent now lies, which it does
#    only when every rewritten parentCID matches its parent's CID;
# 3. qemu-img check is clean on every rewritten file.
# usage: qemu_relink.sh <wine run.sh> <chains_relink_tool.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
winpath() { printf 'Z:%s' "$1" | sed 's|/|\\|g'; }
mkdir -p made/A made/B made/C

qemu-img create -q -f vmdk -o subformat=monolithicSparse made/A/disk.vmdk 32M
qemu-io -f vmdk -c 'write -P 0xa1 0 24M' made/A/disk.vmdk >/dev/null
qemu-img create -q -f vmdk -o subformat=monolithicSparse -b ../A/disk.vmdk -F vmdk made/B/disk-000001.vmdk
qemu-io -f vmdk -c 'write -P 0xb2 4M 8M' -c 'write -P 0xb7 1049088 4096' made/B/disk-000001.vmdk >/dev/null
qemu-img create -q -f vmdk -o subformat=monolithicSparse -b ../B/disk-000001.vmdk -F vmdk made/C/disk-000002.vmdk
qemu-io -f vmdk -c 'write -P 0xc3 8M 8M' -c 'write -P 0xc9 28M 64k' made/C/disk-000002.vmdk >/dev/null
qemu-img convert -f vmdk -O raw made/B/disk-000001.vmdk two.raw
qemu-img convert -f vmdk -O raw made/C/disk-000002.vmdk three.raw
cmp -s two.raw three.raw && { echo "levels do not differ"; exit 1; }

# Two levels: parent and child in unrelated folders.
mkdir -p two/base two/delta
cp made/A/disk.vmdk two/base/
cp made/B/disk-000001.vmdk two/delta/
"$run" "$tool" "$(winpath "$work/two/delta/disk-000001.vmdk")" "$(winpath "$work/two.out")" \
       "$(winpath "$work/two/base")"
cmp two.raw two.out
grep -a -q "parentFileNameHint=\"$(winpath "$work/two/base/disk.vmdk" | sed 's|\\|\\\\|g')\"" two/delta/disk-000001.vmdk
qemu-img check -q -U --image-opts \
    "driver=vmdk,file.filename=two/delta/disk-000001.vmdk,backing.driver=vmdk,backing.file.filename=two/base/disk.vmdk"
qemu-img convert -O raw --image-opts \
    "driver=vmdk,file.filename=two/delta/disk-000001.vmdk,backing.driver=vmdk,backing.file.filename=two/base/disk.vmdk" \
    two.qemu
cmp two.raw two.qemu
echo "two levels relinked: stand-in and qemu read the chain as made, check clean"

# Three levels, each in its own folder; the middle disk is relinked too.
mkdir -p three/x/base three/y/mid three/z/top
cp made/A/disk.vmdk three/x/base/
cp made/B/disk-000001.vmdk three/y/mid/
cp made/C/disk-000002.vmdk three/z/top/
"$run" "$tool" "$(winpath "$work/three/z/top/disk-000002.vmdk")" "$(winpath "$work/three.out")" \
       "$(winpath "$work/three/x/base")" "$(winpath "$work/three/y/mid")"
cmp three.raw three.out
opts="driver=vmdk,file.filename=three/z/top/disk-000002.vmdk"
opts="$opts,backing.driver=vmdk,backing.file.filename=three/y/mid/disk-000001.vmdk"
opts="$opts,backing.backing.driver=vmdk,backing.backing.file.filename=three/x/base/disk.vmdk"
qemu-img check -q -U --image-opts "$opts"
qemu-img check -q -U --image-opts \
    "driver=vmdk,file.filename=three/y/mid/disk-000001.vmdk,backing.driver=vmdk,backing.file.filename=three/x/base/disk.vmdk"
qemu-img convert -O raw --image-opts "$opts" three.qemu
cmp three.raw three.qemu
echo "three levels relinked: stand-in and qemu read the chain as made, check clean"

# Opening again changes nothing: the links already name the found parents.
cp three/z/top/disk-000002.vmdk top.before
"$run" "$tool" "$(winpath "$work/three/z/top/disk-000002.vmdk")" "$(winpath "$work/three.again")" \
       "$(winpath "$work/three/x/base")" "$(winpath "$work/three/y/mid")"
cmp three.raw three.again
cmp top.before three/z/top/disk-000002.vmdk
echo "second open: nothing rewritten"

# A missing ancestor: 16030, nothing opened.
mkdir empty
if "$run" "$tool" "$(winpath "$work/two/delta/disk-000001.vmdk")" "$(winpath "$work/none.out")" \
       "$(winpath "$work/empty")" 2>err.txt; then
    echo "a missing ancestor was not refused"; exit 1
fi
grep -q 'OpenLocal failed: 16030' err.txt
echo "missing ancestor: 16030"
