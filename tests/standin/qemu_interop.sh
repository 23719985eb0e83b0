#!/bin/sh
# VMDK interop between the VDDK stand-in (under Wine) and qemu-img, both ways:
# 1. a three-level chain made by qemu, read through the stand-in = qemu-img convert;
# 2. a base + child made and written by the stand-in: qemu-img check clean, and
#    qemu-img convert equals what the tool wrote (computed without VMDK code).
# usage: qemu_interop.sh <wine run.sh> <standin_disk_tool.exe>
set -eu
run=$1
tool=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
winpath() { printf 'Z:%s' "$1" | sed 's|/|\\|g'; }
cd "$work"
mkdir A B C

qemu-img create -q -f vmdk -o subformat=monolithicSparse A/base.vmdk 64M
qemu-io -f vmdk -c 'write -P 0xa1 0 48M' A/base.vmdk >/dev/null
qemu-img create -q -f vmdk -b ../A/base.vmdk -F vmdk B/child1.vmdk
qemu-io -f vmdk -c 'write -P 0xb2 8M 16M' -c 'write -P 0xb7 1049088 4096' B/child1.vmdk >/dev/null
qemu-img create -q -f vmdk -b ../B/child1.vmdk -F vmdk C/child2.vmdk
qemu-io -f vmdk -c 'write -P 0xc3 16M 16M' -c 'write -P 0xc7 41944576 512' \
        -c 'write -P 0xc9 56M 64k' C/child2.vmdk >/dev/null
qemu-img convert -f vmdk -O raw C/child2.vmdk qemu.raw
"$run" "$tool" read "$(winpath "$work/C/child2.vmdk")" "$(winpath "$work/standin.raw")"
cmp qemu.raw standin.raw
echo "qemu chain read through the stand-in: identical"

"$run" "$tool" write-chain "$(winpath "$work/W")" "$(winpath "$work/expected.raw")"
qemu-img check -q -f vmdk W/base.vmdk
qemu-img check -q -f vmdk W/child.vmdk
grep -a -q 'parentFileNameHint="base.vmdk"' W/child.vmdk
qemu-img convert -f vmdk -O raw W/child.vmdk written.raw
cmp expected.raw written.raw
echo "stand-in chain read by qemu: identical, check clean"
