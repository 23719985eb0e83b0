# The start every shell test of the program shares, sourced as its first
# command: strict mode; the Wine runner and the program under test from the
# arguments; a private work folder, made current and removed at exit; and db
# to run the program; check to run it expecting an exit code and a pattern.
# usage: . "$(dirname "$0")/../../testing/support/sh/tool_test.sh"   (args: <wine run.sh> <program>)
set -eu
run=$1
tool=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
db() { "$run" "$tool" "$@"; }
# check <exit code> <pattern> <stream: out|err> <arguments...>: the run's output
# stays in out.txt and err.txt, and is added to all.txt (the whole transcript).
check() {
    code=$1 pattern=$2 stream=$3
    shift 3
    set +e
    "$run" "$tool" "$@" > out.txt 2> err.txt
    rc=$?
    set -e
    cat out.txt err.txt >> all.txt
    if [ "$rc" != "$code" ] || ! grep -q -- "$pattern" "$stream.txt"; then
        echo "expected exit $code and '$pattern' on std$stream from: diskbroker $*; got exit $rc"
        cat out.txt err.txt
        exit 1
    fi
}
# signal_when <signal> <pattern> <transcript> <arguments...>: runs the program in
# the background, its output (both streams) read through a FIFO, so reading
# cannot start before the run has opened it as it could with a file the run
# creates; every line goes to <transcript>; the first line matching <pattern>
# (a shell pattern) sends <signal>. Waits for the run's end and leaves its exit
# code in rc; returns 1 when no line matched.
signal_when() {
    signal=$1 pattern=$2 transcript=$3
    shift 3
    rm -f run.fifo
    mkfifo run.fifo
    "$run" "$tool" "$@" > run.fifo 2>&1 &
    child=$!
    exec 3< run.fifo
    matched=1
    while IFS= read -r line <&3; do
        printf '%s\n' "$line" >> "$transcript"
        [ $matched = 0 ] && continue
        case "$line" in $pattern) kill -"$signal" "$child" 2>/dev/null || true; matched=0 ;; esac
    done
    exec 3<&-
    set +e
    wait "$child"
    rc=$?
    set -e
    return $matched
}
