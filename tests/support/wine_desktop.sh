#!/bin/sh
# Wine's desktop process belongs to the prefix fixture, not to a test: it exists
# before the tests run, its output goes nowhere CTest waits on, and a test that
# uses the desktop starts no desktop process of its own (one that would inherit
# the test's output pipe and keep CTest waiting until the test times out).
# usage: wine_desktop.sh <wine run.sh> <wine_desktop_keeper.exe>
set -eu
run=$1
keeper=$2
prefix=${DISKBROKER_WINEPREFIX:?}
# desktops: pid and standard error of each desktop process of this prefix
desktops() {
    for pid in $(pgrep -f 'explorer.exe /desktop' || true); do
        of_prefix "$pid" || continue
        echo "$pid $(readlink "/proc/$pid/fd/2" 2>/dev/null || echo gone)"
    done
}
of_prefix() { tr '\0' '\n' < "/proc/$1/environ" 2>/dev/null | grep -qx "WINEPREFIX=$prefix"; }
# The desktop closes a second after its last user leaves, so something must
# stay its user for the whole run: the fixture's keeper.
kept=""
for pid in $(pgrep -f 'wine_desktop_keeper.exe$' || true); do of_prefix "$pid" && kept="$kept $pid"; done
[ -n "$kept" ] || { echo "no desktop keeper runs for the prefix"; exit 1; }
before=$(desktops)
[ -n "$before" ] || { echo "no desktop process was started with the prefix"; exit 1; }
if echo "$before" | grep -q 'pipe:'; then
    echo "a desktop process writes to a pipe (pid, standard error):"; echo "$before"; exit 1
fi
"$run" "$keeper" --touch | cat
after=$(desktops)
[ "$before" = "$after" ] || { printf 'a test started a desktop process:\nbefore: %s\nafter: %s\n' "$before" "$after"; exit 1; }
echo "the fixture's desktop process serves the tests: $before"
