#!/bin/sh
# Local chain relinking checked against qemu-img, the outside oracle:
# a chain of three levels made by qemu (different data per level) is copied
# into separate folders, where its relative parent links no longer lead
# anywhere; diskbroker backup --ancestors relinks it (VixDiskLib_OpenLocal),
# and then
# 1. the service (through the VDDK stand-in) reads what qemu read before the move;
# 2. qemu reads the same when told where each parent now lies, which it does
#    only when every rewritten parentCID matches its parent's CID;
# 3. qemu-img check is clean on every rewritten file.
# Without --ancestors, or with a folder that lacks the parent, the backup fails.
# usage: qemu_relink.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
# qemu_reads <expected raw> <top> <its parent>...: qemu-img check is clean on
# the chain as it now lies, and qemu reads it as expected.
qemu_reads() {
    expected=$1
    opts="driver=vmdk,file.filename=$2"
    shift 2
    backing=backing
    for file in "$@"; do
        opts="$opts,$backing.driver=vmdk,$backing.file.filename=$file"
        backing=$backing.backing
    done
    qemu-img check -q -U --image-opts "$opts"
    qemu-img convert -O raw --image-opts "$opts" qemu.raw
    cmp "$expected" qemu.raw
}
mkdir -p made/A made/B made/C three/x/base three/y/mid three/z/top empty

qemu-img create -q -f vmdk -o subformat=monolithicSparse made/A/disk.vmdk 32M
qemu-io -f vmdk -c 'write -P 0xa1 0 24M' made/A/disk.vmdk >/dev/null
qemu-img create -q -f vmdk -o subformat=monolithicSparse -b ../A/disk.vmdk -F vmdk made/B/disk-000001.vmdk
qemu-io -f vmdk -c 'write -P 0xb2 4M 8M' -c 'write -P 0xb7 1049088 4096' made/B/disk-000001.vmdk >/dev/null
qemu-img create -q -f vmdk -o subformat=monolithicSparse -b ../B/disk-000001.vmdk -F vmdk made/C/disk-000002.vmdk
qemu-io -f vmdk -c 'write -P 0xc3 8M 8M' -c 'write -P 0xc9 28M 64k' made/C/disk-000002.vmdk >/dev/null
qemu-img convert -f vmdk -O raw made/B/disk-000001.vmdk two.raw
qemu-img convert -f vmdk -O raw made/C/disk-000002.vmdk three.raw
cmp -s two.raw three.raw && { echo "levels do not differ"; exit 1; }

# Three levels, each in its own folder; the middle disk is relinked too.
cp made/A/disk.vmdk three/x/base/
cp made/B/disk-000001.vmdk three/y/mid/
cp made/C/disk-000002.vmdk three/z/top/
check 1 'cannot open' err backup three/z/top/disk-000002.vmdk lost.img
check 1 '16030' err backup three/z/top/disk-000002.vmdk lost.img --ancestors empty
db backup three/z/top/disk-000002.vmdk three.out --ancestors three/x/base three/y/mid > /dev/null
cmp three.raw three.out
qemu_reads three.raw three/z/top/disk-000002.vmdk three/y/mid/disk-000001.vmdk three/x/base/disk.vmdk
qemu_reads two.raw three/y/mid/disk-000001.vmdk three/x/base/disk.vmdk
echo "three levels: refused without the parents' folders; relinked, stand-in and qemu read the chain as made"

# Opening again changes nothing: the links already name the found parents.
cp three/z/top/disk-000002.vmdk top.before
db backup three/z/top/disk-000002.vmdk three.again --ancestors three/x/base three/y/mid > /dev/null
cmp three.raw three.again
cmp top.before three/z/top/disk-000002.vmdk
echo "second open: nothing rewritten"
