#!/bin/sh
# Memory disks of the stand-in: a backup of a pattern disk restores into a disk
# with the same pattern, and the read-back catches a target that does not keep
# what was written (exit 3). A memory disk reads its pattern whatever is
# written, so the bytes a restore writes are checked where the stand-in's
# mismatch count can be read: the write cache and stress tests.
# usage: memdisk.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
size=8388608

db backup "memdisk://src?size=$size&seed=7" mem.img > /dev/null
test "$(stat -c %s mem.img)" = "$size"
db restore mem.img "memdisk://same?size=$size&seed=7&verify=1" > out.txt
grep -q '^read back: matches' out.txt
echo "pattern disk: backed up and restored, read back intact"

# A memory disk drops what is written and reads its own pattern back.
check 3 'does not read back what was written' err restore mem.img "memdisk://other?size=$size&seed=8"
echo "a target that loses the data: exit 3 from the read-back"

# Half the disk by change list: only that half is written and read back.
cat > half.xml <<XML
<DiskChangeInfo><area startoffset="0" startlength="$size"><extent offset="4194304" length="4194304"/></area></DiskChangeInfo>
XML
db restore --changes half.xml mem.img "memdisk://half?size=$size&seed=7&verify=1" > out.txt
grep -q '1 range, 4.0 MiB written' out.txt
echo "restore of a change list's ranges: only those written"
