#!/bin/sh
# vm-backup, vm-info, snapshots and hosts as a user runs them on the stand-in:
# the README's commands, a clear message and exit 1 for a wrong password, an
# unknown VM, an unreachable server and a malformed inventory, a run killed
# while its disk streams whose snapshot the next run removes, and no password
# in the registry the runs keep.
# usage: vm_backup_cli.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
DISKBROKER_PASSWORD=Standin-Pass1
export DISKBROKER_PASSWORD
inv="--inventory inventory.xml"

for command in vm-backup vm-info snapshots hosts; do check 0 "^usage: diskbroker $command" out "$command" --help; done
check 2 '--server is required' err vm-backup --vm web01 out
check 2 '--vm is required' err vm-backup --server vcenter.example out
check 2 "option '--vsphere' must be one of" err hosts --server vcenter.example --vsphere real
echo "help and usage"

check 0 'snapshot removed; VM .web01. released' out vm-backup --server vcenter.example --vm web01 $inv images
grep -q 'backed up 2 disks' out.txt
[ "$(stat -c %s images/web01-disk0.img)" = 8388608 ] && [ -s images/web01-disk1.img.manifest ]
check 0 '(no snapshots)' out snapshots --server vcenter.example --vm web01 $inv
check 0 'change tracking: enabled' out vm-info --server vcenter.example --vm web01 $inv
check 0 'esx-02.example  version 8.0' out hosts --server vcenter.example $inv
if grep -rq Standin-Pass1 inventory.xml all.txt; then echo "a password reached a file"; exit 1; fi
echo "backup, info, snapshots, hosts"

DISKBROKER_PASSWORD=wrong check 1 'refused the user name or password' err vm-backup --server vcenter.example --vm web01 $inv x
check 1 "does not know the VM 'nosuch'" err vm-backup --server vcenter.example --vm nosuch $inv x
check 1 'cannot be reached at https://nowhere.example/sdk' err vm-backup --server nowhere.example --vm web01 $inv x
echo "a file" > afile
check 1 'is not a folder' err vm-backup --server vcenter.example --vm web01 $inv afile
check 2 "option '--buffers' needs a whole number" err vm-backup --server vcenter.example --vm web01 $inv --buffers 0 x
echo "not a document" > broken.xml
check 1 'cannot use the inventory file' err hosts --server vcenter.example --inventory broken.xml
check 0 '(no snapshots)' out snapshots --server vcenter.example --vm web01 $inv
echo "failures: exit 1 with the cause, no snapshot left"

# A run killed while a large disk streams leaves its snapshot; the next run removes it.
cat > big.xml <<'XML'
<inventory server="vcenter.example"><vm name="big" moRef="vm-7">
<disk path="memdisk://big-0?size=8589934592&amp;seed=7"/></vm></inventory>
XML
signal_when TERM '*locked for the backup*' killed.txt vm-backup --server vcenter.example --vm big --inventory big.xml killed ||
    { echo "the killed run never took its snapshot"; cat killed.txt; exit 1; }
check 0 '^diskbroker-' out snapshots --server vcenter.example --vm big --inventory big.xml
sed -i 's/size=8589934592/size=1048576/' big.xml
check 0 'released' out vm-backup --server vcenter.example --vm big --inventory big.xml again
check 0 '(no snapshots)' out snapshots --server vcenter.example --vm big --inventory big.xml
echo "a killed run's snapshot is removed by the next run"

# The stand-in machine's registry keeps the orphan-list setting for the next
# run, never a password nor a value named for one, also after a killed run.
"$run" reg query 'HKCU\Software\diskBroker\StandinMachine' /s > registry.txt 2>&1
grep -q AutoOrphanSnapshotRemoval registry.txt || { echo "the stand-in machine lost its settings"; cat registry.txt; exit 1; }
if grep -Eqi 'Standin-Pass1|password' registry.txt; then echo "a password reached the registry"; exit 1; fi
echo "the stand-in machine: settings kept, no password"
