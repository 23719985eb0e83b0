#!/bin/sh
# backup --resume and restore --resume, stopped hard part-way by --stop-after
# and run again, with qemu-img as the oracle:
# 1. the stopped backup leaves no manifest; the resumed one reads only what
#    was not committed and its image is qemu's raw view of the disk;
# 2. a third run finds nothing left; another job's folder is refused;
# 3. a restore stopped part-way and resumed gives a disk identical to the source.
# usage: resume.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
expect_exit() {  # code, then the command
    want=$1; shift
    set +e; "$@" > last.out 2>&1; got=$?; set -e
    if [ "$got" != "$want" ]; then echo "exit $got, not $want: $*"; cat last.out; exit 1; fi
}

qemu-img create -q -f vmdk -o subformat=monolithicSparse disk.vmdk 32M
qemu-io -f vmdk -c 'write -P 0xa1 0 12M' -c 'write -P 0xa2 20M 5M' -c 'write -P 0xa3 32505856 512' disk.vmdk >/dev/null
qemu-img convert -f vmdk -O raw disk.vmdk disk.raw
sha=$(sha256sum disk.raw | cut -d' ' -f1)

expect_exit 2 db backup disk.vmdk img.raw --stop-after 1000
expect_exit 9 db backup disk.vmdk img.raw --resume state --stop-after 10000000
grep -q 'stopped hard after' last.out
test ! -e img.raw.manifest
db backup disk.vmdk img.raw --resume state > resumed.out
left=$(sed -n 's/^resume: extents 1, sectors asked 65536, already committed \([0-9]*\), left \([0-9]*\)$/\1 \2/p' resumed.out)
test -n "$left"
set -- $left
test "$1" -gt 0 && test "$2" -gt 0 && test $(($1 + $2)) = 65536
# The read statistics line counts only the remainder, in sectors.
grep -q "^statistics: VixDiskLib_Read(.*Data extent: \[0*$1-0*$2(" resumed.out
cmp disk.raw img.raw
grep -q "^stream $sha\$" img.raw.manifest
grep -q '^extent 0 33554432 ' img.raw.manifest
echo "backup: stopped at $1 sectors, resumed for the other $2; the image is qemu's raw view"

db backup disk.vmdk img.raw --resume state > again.out
grep -q '^resume: extents 0, sectors asked 65536, already committed 65536, left 0$' again.out
grep -q "^stream $sha\$" img.raw.manifest
expect_exit 1 db backup disk.vmdk other.raw --resume state
grep -q 'belongs to another job' last.out
echo "backup: a finished job reads nothing again; another job's folder is refused"

expect_exit 9 db backup disk.vmdk gone.raw --resume gstate --stop-after 10000000
rm gone.raw
db backup disk.vmdk gone.raw --resume gstate > gone.out
grep -q "is not there; its bookkeeping is dropped and the backup starts over" gone.out
grep -q '^resume: extents 1, sectors asked 65536, already committed 0, left 65536$' gone.out
cmp disk.raw gone.raw
echo "backup: an image deleted between attempts is made again, whole"

expect_exit 9 db restore img.raw target.vmdk --resume rstate --stop-after 8000000
db restore img.raw target.vmdk --resume rstate > restored.out
grep -q '^resume: extents 1, sectors asked 65536, already committed [1-9][0-9]*, left [1-9][0-9]*$' restored.out
grep -q '^read back: matches' restored.out
qemu-img compare -q -f vmdk -F vmdk disk.vmdk target.vmdk
qemu-img check -q -f vmdk target.vmdk
echo "restore: stopped, resumed, identical to the source"
