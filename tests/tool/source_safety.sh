#!/bin/sh
# An output that is (or is another name of) one of the command's inputs is
# refused before anything is deleted or written: the source disk under another
# spelling, its -flat extent, a hard link to it, a parent of the chain, the
# change list; for restore, the image and the files beside it.
# usage: source_safety.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
# refused <what> <arguments...>: exit 1, the refusal on stderr, inputs unchanged.
refused() {
    what=$1
    shift
    sha256sum ./*.vmdk ./*.xml ./*.img* 2>/dev/null | sort > before.sha
    check 1 'refusing to write .*nothing was deleted or written' err "$@"
    sha256sum ./*.vmdk ./*.xml ./*.img* 2>/dev/null | sort > after.sha
    cmp -s before.sha after.sha || { echo "$what: an input changed"; diff before.sha after.sha; exit 1; }
}

qemu-img create -q -f vmdk -o subformat=monolithicFlat flat.vmdk 8M
qemu-io -f vmdk -c 'write -P 0x3c 1M 2M' flat.vmdk >/dev/null
refused "image = the source" backup flat.vmdk flat.vmdk --force
refused "image = the -flat extent" backup flat.vmdk flat-flat.vmdk --force
refused "image = the source, other spelling" backup flat.vmdk ./sub/../FLAT.VMDK --force
ln flat-flat.vmdk hardlink.img
refused "image = a hard link to the extent" backup flat.vmdk hardlink.img --force
rm hardlink.img
echo "backup: the source under any name is refused, nothing deleted"

qemu-img create -q -f vmdk -o subformat=monolithicSparse base.vmdk 8M
qemu-io -f vmdk -c 'write -P 0x4d 0 1M' base.vmdk >/dev/null
qemu-img create -q -f vmdk -b base.vmdk -F vmdk child.vmdk
refused "image = the parent of the source" backup child.vmdk base.vmdk --force
cat > list.xml <<'XML'
<DiskChangeInfo><area startoffset="0" startlength="8388608"><extent offset="0" length="1048576"/></area></DiskChangeInfo>
XML
cp list.xml inc.img.extents.xml
refused "extent list = the change list" backup --changes inc.img.extents.xml child.vmdk inc.img --force
rm inc.img.extents.xml
echo "backup: a parent and the change list are refused too"

db backup child.vmdk good.img > /dev/null
refused "target = the image" restore good.img good.img
refused "target = the manifest" restore good.img GOOD.IMG.MANIFEST
refused "target = the change list" restore --changes list.xml good.img list.xml
db restore good.img restored.vmdk > /dev/null
qemu-img compare -q -f vmdk -F vmdk child.vmdk restored.vmdk
echo "restore: the image and its files are refused; a real target restores"
