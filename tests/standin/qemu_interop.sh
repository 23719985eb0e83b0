#!/bin/sh
# VMDK interop between the VDDK stand-in (under Wine) and qemu-img: a base + child
# made and written by the stand-in: qemu-img check clean, and qemu-img convert
# equals what the tool wrote (computed without VMDK code). qemu chains read through
# the stand-in are covered by the relink and round-trip scripts.
# usage: qemu_interop.sh <wine run.sh> <standin_disk_tool.exe>
set -eu
run=$1
tool=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
winpath() { printf 'Z:%s' "$1" | sed 's|/|\\|g'; }
cd "$work"
"$run" "$tool" "$(winpath "$work/W")" "$(winpath "$work/expected.raw")"
qemu-img check -q -f vmdk W/base.vmdk
qemu-img check -q -f vmdk W/child.vmdk
grep -a -q 'parentFileNameHint="base.vmdk"' W/child.vmdk
qemu-img convert -f vmdk -O raw W/child.vmdk written.raw
cmp expected.raw written.raw
echo "stand-in chain read by qemu: identical, check clean"
