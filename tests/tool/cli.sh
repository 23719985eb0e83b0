#!/bin/sh
# The command line: --help for the program and each command (exit 0), bad
# arguments (exit 2 with the reason), a disk that cannot be opened (exit 1
# with VDDK's text), and a server password that reaches no output, log or
# registry value.
# usage: cli.sh <wine run.sh> <diskbroker.exe>
. "$(dirname "$0")/../../testing/support/sh/tool_test.sh"

check 0 '^usage: diskbroker <command>' out --help
check 2 '^usage: diskbroker <command>' out
for command in backup restore checksum info transports log demo; do
    check 0 "^usage: diskbroker $command" out "$command" --help
done
check 0 'DiskChangeInfo' out backup child.vmdk --help
echo "help: program and every command"

check 2 "unknown option '--bogus'" err backup --bogus a.vmdk a.img
check 2 "unknown command 'bakup'" err bakup a.vmdk a.img
check 2 'missing argument: 2 expected, 1 given' err restore only-one
check 2 "unexpected argument 'c'" err backup a b c
check 2 "option '--buffers' needs a whole number from 1 to 1024, not '0'" err backup --buffers 0 a b
check 2 "option '--changes' needs a value" err backup a b --changes
check 2 "option '--vddk' must be one of auto, standin, installed" err info --vddk nowhere a.vmdk
check 2 'need --server' err info --user someone a.vmdk
echo "bad arguments: exit 2 with the reason"

check 1 "cannot open '.*missing.vmdk'" err info missing.vmdk
check 1 'VDDK error' err info missing.vmdk
check 1 'change list .*absent.xml.* does not exist' err backup --changes absent.xml missing.vmdk x.img
echo "failures: exit 1 with the cause"

# The stand-in accepts the server connection; its datastore has no such disk.
secret="pw-$$-do-not-leak"
export DISKBROKER_PASSWORD="$secret"
check 1 "cannot open '\\[ds\\] vm/disk.vmdk'" err info --server vc.example --user backup --vm moref=vm-1 '[ds] vm/disk.vmdk'
unset DISKBROKER_PASSWORD
logs="${DISKBROKER_WINEPREFIX:?}/drive_c"
"$run" reg query 'HKCU\Software\diskBroker\StandinMachine' /s > registry.txt 2>&1
if grep -rqs -- "$secret" all.txt registry.txt "$logs/Logs" "$logs"/*.ini; then
    echo "the password reached an output, a log or the registry"
    exit 1
fi
check 1 'needs a password in the environment variable DISKBROKER_PASSWORD' err info --server vc.example --user backup '[ds] vm/disk.vmdk'
echo "server password: used, never printed or logged"
