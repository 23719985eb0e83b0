#!/bin/sh
# The command-line program against govmomi's vSphere simulator: with --server and
# no inventory file it uses this product's client. The simulator's VMs get real
# disks made by qemu-img at the datastore paths they name (a monolithic sparse
# disk and a flat one), vm-backup reads them through the VDDK stand-in's remote
# connection (its root: the simulator's datastore folders), and each image must
# equal qemu-img's raw conversion byte for byte. A snapshot of a killed run is
# removed by the next run. Failures end with exit 1 and a message and leave no
# snapshot; the password reaches no output and no log.
# usage: vm_backup_live.sh <wine run.sh> <diskbroker.exe> <simulator state folder>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"
sim=$3
if [ ! -s "$sim/url.txt" ]; then echo "the vSphere simulator is not running (no Go?)"; exit 77; fi
url=$(head -n1 "$sim/url.txt")
server=${url#https://}
server=${server%/sdk}
DISKBROKER_PASSWORD=Sim-Pass1
VDDKSIM_REMOTE_ROOT="Z:$sim/datastores"
export DISKBROKER_PASSWORD VDDKSIM_REMOTE_ROOT
# The local file of the VM's first disk, from the datastore path vm-info shows.
disk_of() {
    check 0 '^disk: ' out vm-info --server "$server" --vm "$1"
    path=$(sed -n 's/^disk: *//p' out.txt | head -n1 | tr -d '\r')
    ds=$(echo "$path" | sed 's/^\[\([^]]*\)\] .*/\1/')
    echo "$sim/datastores/$ds/${path#*] }"
}
# A raw disk of an odd size (not whole MiB) with data in some places and holes elsewhere.
make_raw() {
    truncate -s "$2" "$1"
    dd if=/dev/urandom of="$1" bs=65536 count=40 seek=3 conv=notrunc status=none
    dd if=/dev/urandom of="$1" bs=512 count=7 seek=$(( $2 / 512 - 7 )) conv=notrunc status=none
}

check 0 'change tracking: ' out vm-info --server "$server" --vm DC0_H0_VM0
grep -q '^VM: *DC0_H0_VM0 (vm-' out.txt
check 0 'DC0_H0  version 6\.' out hosts --server "$server"
echo "vm-info and hosts use the client by default with --server"

sparse=$(disk_of DC0_H0_VM0)
flat=$(disk_of DC0_C0_RP0_VM0)
make_raw sparse.raw 12583424
make_raw flat.raw 5243392
# The placeholder of the second VM is left for a run that must fail first.
qemu-img convert -f raw -O vmdk sparse.raw "$sparse"
check 1 "cannot open '\[LocalDS_0\] DC0_C0_RP0_VM0/disk1.vmdk'" err vm-backup --server "$server" --vm DC0_C0_RP0_VM0 bad
check 0 '(no snapshots)' out snapshots --server "$server" --vm DC0_C0_RP0_VM0
rm -f "$flat" "${flat%.vmdk}-flat.vmdk"
qemu-img convert -f raw -O vmdk -o subformat=monolithicFlat flat.raw "$flat"
echo "a disk that cannot be read fails the backup and leaves no snapshot"

for vm in DC0_H0_VM0 DC0_C0_RP0_VM0; do
    check 0 "snapshot removed; VM '$vm' released" out vm-backup --server "$server" --vm $vm --transports nbd images
    grep -q "backed up 1 disk of '$vm'" out.txt
    check 0 '(no snapshots)' out snapshots --server "$server" --vm $vm
    check 0 'change tracking: enabled' out vm-info --server "$server" --vm $vm
done
qemu-img convert -O raw "$sparse" sparse.ref
qemu-img convert -O raw "$flat" flat.ref
cmp sparse.ref images/DC0_H0_VM0-disk0.img
cmp flat.ref images/DC0_C0_RP0_VM0-disk0.img
[ -s images/DC0_H0_VM0-disk0.img.manifest ] && [ -s images/DC0_C0_RP0_VM0-disk0.img.manifest ]
echo "both VMs backed up; every image equals qemu-img's raw conversion"

# A run killed while a large disk streams leaves its snapshot; the next run removes it.
mv "$flat" flat.vmdk.keep
qemu-img create -q -f vmdk "$flat" 8G
signal_when TERM '*locked for the backup*' killed.txt vm-backup --server "$server" --vm DC0_C0_RP0_VM0 killed ||
    { echo "the killed run never took its snapshot"; cat killed.txt; exit 1; }
check 0 '^diskbroker-' out snapshots --server "$server" --vm DC0_C0_RP0_VM0
mv flat.vmdk.keep "$flat"
check 0 'released' out vm-backup --server "$server" --vm DC0_C0_RP0_VM0 again
check 0 '(no snapshots)' out snapshots --server "$server" --vm DC0_C0_RP0_VM0
cmp flat.ref again/DC0_C0_RP0_VM0-disk0.img
echo "a killed run's snapshot is removed by the next run"

DISKBROKER_PASSWORD=wrong check 1 'refused the user name or password' err vm-backup --server "$server" --vm DC0_H0_VM0 x
check 1 "does not know the VM 'nosuch'" err vm-backup --server "$server" --vm nosuch x
check 2 'the port must be 1-65535' err vm-backup --server 127.0.0.1:99999 --vm DC0_H0_VM0 x
check 1 'cannot be reached' err vm-backup --server 127.0.0.1:1 --vm DC0_H0_VM0 x
check 2 'for a server' err vm-backup --server vcenter.example --inventory none.xml --thumbprint AB --vm web01 x
check 0 '(no snapshots)' out snapshots --server "$server" --vm DC0_H0_VM0
echo "failures: exit 1 or 2 with the cause, nothing taken"

log="$DISKBROKER_WINEPREFIX/drive_c/Logs/diskBroker.log"
if grep -q Sim-Pass1 all.txt images/* || { [ -f "$log" ] && grep -q Sim-Pass1 "$log"; }; then
    echo "the password reached an output or the log"; exit 1
fi
if [ -f "$log" ] && grep -q vmware_soap_session "$log"; then echo "the session cookie reached the log"; exit 1; fi
echo "no password or session cookie in any output or log"
