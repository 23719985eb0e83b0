# The start every shell test of the program shares, sourced as its first
# command: strict mode; the Wine runner and the program under test from the
# arguments; a private work folder, made current and removed at exit; and db
# to run the program.
# usage: . "$(dirname "$0")/../../testing/support/sh/tool_test.sh"   (args: <wine run.sh> <program>)
set -eu
run=$1
tool=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
db() { "$run" "$tool" "$@"; }
