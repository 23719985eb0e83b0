#!/bin/sh
# backup --resume and restore --resume, stopped hard part-way by --stop-after
# and run again, with qemu-img as the oracle:
# 1. the stopped backup leaves no manifest; the resumed one reads only what
#    was not committed and its image is qemu's raw view of the disk;
# 2. a third run finds nothing left; another job's folder is refused;
# 3. a restore stopped part-way, twice, and resumed gives a disk identical to
#    the source, marked incomplete (info says so) until the last attempt ends,
#    whatever mark the backed-up disk itself carried.
# usage: resume.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
mark_is() {  # state, disk, when
    db info "$2" > info.txt
    if ! grep -q "^restore: *$1" info.txt; then echo "$2 is not marked $1 $3:"; cat info.txt; exit 1; fi
}

qemu-img create -q -f vmdk -o subformat=monolithicSparse disk.vmdk 32M
qemu-io -f vmdk -c 'write -P 0xa1 0 12M' -c 'write -P 0xa2 20M 5M' -c 'write -P 0xa3 32505856 512' disk.vmdk >/dev/null
qemu-img convert -f vmdk -O raw disk.vmdk disk.raw
sha=$(sha256sum disk.raw | cut -d' ' -f1)

# Working files a stopped backup leaves anywhere but in its state folder (the
# prefix's Temp, shared by every test) would pile up run after run.
strays() { find "$DISKBROKER_WINEPREFIX/drive_c/users" -name 'diskbroker-*.left.xml' -newer disk.raw 2>/dev/null; }

check 2 'needs --resume' err backup disk.vmdk img.raw --stop-after 1000
check 9 'stopped hard after' err backup disk.vmdk img.raw --resume state --stop-after 10000000
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
stray=$(strays)
test -z "$stray" || { echo "a stopped backup left working files outside its state folder: $stray"; exit 1; }

db backup disk.vmdk img.raw --resume state > again.out
grep -q '^resume: extents 0, sectors asked 65536, already committed 65536, left 0$' again.out
grep -q "^stream $sha\$" img.raw.manifest
check 1 'belongs to another job' err backup disk.vmdk other.raw --resume state
echo "backup: a finished job reads nothing again; another job's folder is refused"

check 9 'stopped hard after' err backup disk.vmdk gone.raw --resume gstate --stop-after 10000000
rm gone.raw
db backup disk.vmdk gone.raw --resume gstate > gone.out
grep -q "is not there; its bookkeeping is dropped and the backup starts over" gone.out
grep -q '^resume: extents 1, sectors asked 65536, already committed 0, left 65536$' gone.out
cmp disk.raw gone.raw
echo "backup: an image deleted between attempts is made again, whole"

check 9 'stopped hard after' err restore img.raw target.vmdk --resume rstate --stop-after 8000000
mark_is INCOMPLETE target.vmdk "after the stopped restore"
check 9 'stopped hard after' err restore img.raw target.vmdk --resume rstate --stop-after 8000000
mark_is INCOMPLETE target.vmdk "after a resumed restore that stopped too"
db restore img.raw target.vmdk --resume rstate > restored.out
grep -q '^resume: extents 1, sectors asked 65536, already committed [1-9][0-9]*, left [1-9][0-9]*$' restored.out
grep -q '^read back: matches' restored.out
mark_is complete target.vmdk "after the restore ended"
qemu-img compare -q -f vmdk -F vmdk disk.vmdk target.vmdk
qemu-img check -q -f vmdk target.vmdk
echo "restore: stopped twice, resumed, marked incomplete until its end, identical to the source"

# The restored disk carries "complete" in its metadata, and so does a backup
# of it; restoring that backup must not take the source's mark for its own.
db backup target.vmdk marked.raw > /dev/null
grep -aq 'diskbroker.restore' marked.raw.meta
check 9 'stopped hard after' err restore marked.raw copy.vmdk --resume mstate --stop-after 8000000
mark_is INCOMPLETE copy.vmdk "after a stopped restore of a restored disk's backup"
db restore marked.raw copy.vmdk --resume mstate > /dev/null
mark_is complete copy.vmdk "after that restore ended"
echo "restore: a source's own mark is never copied over the target's"
