#!/bin/sh
# Runs a test program with a network share that Wine really serves:
#   \\dbchains\share  -> a temporary folder (<prefix>/dosdevices/unc/dbchains/share)
#   1: ... 9:         -> the same folder, so that the device name the library
#                        defines for the share opens files, as it does on Windows
#                        (Wine opens them through these links, not through the
#                        definition)
#   r:                -> the same folder, the drive the test's network seam
#                        answers for a connection to the share
# On the share, made by qemu-img: IMG0001/disk.vmdk (base) and two children
# folder/disk-000001.vmdk and other/disk-000001.vmdk, with expected.raw and
# other.raw what qemu reads from each. Links that exist already are left alone
# and the program is run without the share (its tests then skip).
# usage: share_env.sh <wine run.sh> <program.exe> [args...]
set -eu
run=$1
shift
prefix=${DISKBROKER_WINEPREFIX:?}
winpath() { printf 'Z:%s' "$1" | sed 's|/|\\|g'; }
work=$(mktemp -d)
share=$work/share
made=""
cleanup() {
    for link in $made; do rm -f "$link"; done
    rmdir "$prefix/dosdevices/unc/dbchains" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
mkdir -p "$share/IMG0001" "$share/folder" "$share/other"
qemu-img create -q -f vmdk -o subformat=monolithicSparse "$share/IMG0001/disk.vmdk" 8M
qemu-io -f vmdk -c 'write -P 0xa1 0 6M' "$share/IMG0001/disk.vmdk" >/dev/null
for child in folder other; do
    qemu-img create -q -f vmdk -o subformat=monolithicSparse -b ../IMG0001/disk.vmdk -F vmdk \
        "$share/$child/disk-000001.vmdk"
done
qemu-io -f vmdk -c 'write -P 0xb2 2M 2M' "$share/folder/disk-000001.vmdk" >/dev/null
qemu-io -f vmdk -c 'write -P 0xc3 5M 1M' "$share/other/disk-000001.vmdk" >/dev/null
qemu-img convert -f vmdk -O raw "$share/folder/disk-000001.vmdk" "$share/expected.raw"
qemu-img convert -f vmdk -O raw "$share/other/disk-000001.vmdk" "$share/other.raw"

mkdir -p "$prefix/dosdevices/unc/dbchains"
ready=1
links="$prefix/dosdevices/unc/dbchains/share $prefix/dosdevices/r:"
for digit in 1 2 3 4 5 6 7 8 9; do links="$links $prefix/dosdevices/$digit:"; done
for link in $links; do
    if [ -e "$link" ] || [ -L "$link" ]; then ready=0; continue; fi
    ln -s "$share" "$link"
    made="$made $link"
done
if [ $ready = 1 ]; then
    CHAINS_SHARE_LOCAL=$(winpath "$share")
    CHAINS_SHARE_UNC='\\dbchains\share'
    CHAINS_SHARE_DRIVE='R:'
    export CHAINS_SHARE_LOCAL CHAINS_SHARE_UNC CHAINS_SHARE_DRIVE
fi
"$run" "$@"
