#!/bin/sh
# Every Wine process of the suite must start with the same address-space layout.
# 1. The failure it prevents, made deterministic: a process whose page at
#    0x7ffe0000 is taken before Wine reserves it (as the randomized brk heap of
#    Debian's preloader-less wine64 does once in ~7700 starts) exits with status
#    1 before any Windows code runs, and says nothing under WINEDEBUG=-all.
# 2. The launch the suite uses starts the loader's heap at one address, far
#    below that page, every time.
# usage: wine_layout.sh <wine run.sh> <any quick Windows program>
set -eu
run=$1
program=$2
cc=$(command -v clang || command -v gcc || command -v cc || true)
[ -n "$cc" ] || { echo "no native C compiler: skipped"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cc" -shared -fPIC -o "$work/probe.so" "$(dirname "$0")/wine_layout_probe.c"

set +e
PROBE_OCCUPY=1 LD_PRELOAD="$work/probe.so" WINEDEBUG=-all "$run" "$program" --help > "$work/out" 2> "$work/err"
rc=$?
set -e
if [ "$rc" != 1 ] || [ -s "$work/out" ] || [ -s "$work/err" ]; then
    echo "with 0x7ffe0000 taken: expected a silent exit 1, got exit $rc"; cat "$work/out" "$work/err"; exit 1
fi
PROBE_OCCUPY=1 LD_PRELOAD="$work/probe.so" WINEDEBUG=err+all "$run" "$program" --help > /dev/null 2> "$work/err" || true
grep -q 'failed to map the shared user data: c0000018' "$work/err" || { echo "Wine did not name the cause"; cat "$work/err"; exit 1; }
echo "a taken KUSER_SHARED_DATA page: silent exit 1 (failed to map the shared user data: c0000018)"

for i in 1 2 3 4 5 6 7 8; do LD_PRELOAD="$work/probe.so" "$run" "$program"; done > "$work/heaps"
if [ "$(sort -u "$work/heaps" | wc -l)" != 1 ]; then
    echo "the loader's heap moves from one start to the next:"; cat "$work/heaps"; exit 1
fi
heap=$(head -n 1 "$work/heaps")
# 16 MiB of heap before Wine reserves the page would still leave it alone.
if [ $((heap + 0x1000000)) -ge $((0x7ffe0000)) ]; then echo "the heap starts at $heap, too near 0x7ffe0000"; exit 1; fi
echo "the loader's heap starts at $heap in every launch"
