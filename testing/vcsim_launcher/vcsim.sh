#!/usr/bin/env bash
# vcsim.sh start|stop <state folder> [launcher source folder]
# start: builds the launcher (Debian's Go and govmomi, GOPATH mode, no downloads),
# starts it on 127.0.0.1 with a free port and waits for <state folder>/url.txt;
# <state folder>/datastores/<name> is a link to each datastore's folder.
# Without Go it writes nothing and succeeds: the simulator tests then skip.
# stop: ends the launcher it started (by its recorded process id).
set -euo pipefail
action=$1; dir=$2; src=${3:-$(dirname "$0")}
mkdir -p "$dir"
case "$action" in
start)
  rm -f "$dir/url.txt"
  if ! command -v go >/dev/null || [ ! -d /usr/share/gocode/src/github.com/vmware/govmomi ]; then
    echo "vcsim: Go or govmomi missing (scripts/deps.sh installs them); simulator tests will skip"
    exit 0
  fi
  if [ -f "$dir/pid" ] && kill -0 "$(cat "$dir/pid")" 2>/dev/null; then kill "$(cat "$dir/pid")" || true; fi
  GOPATH=/usr/share/gocode GO111MODULE=off GOFLAGS= GOCACHE="$dir/gocache" \
    go build -o "$dir/vcsim-launcher" "$src"/*.go
  "$dir/vcsim-launcher" -url-file "$dir/url.txt" -datastore-root "$dir/datastores" >"$dir/launcher.log" 2>&1 </dev/null &
  echo $! >"$dir/pid"
  for _ in $(seq 1 300); do
    [ -s "$dir/url.txt" ] && { echo "vcsim: $(cat "$dir/url.txt")"; exit 0; }
    kill -0 "$(cat "$dir/pid")" 2>/dev/null || { cat "$dir/launcher.log"; exit 1; }
    sleep 0.1
  done
  echo "vcsim: no URL after 30 s"; cat "$dir/launcher.log"; exit 1 ;;
stop)
  if [ -f "$dir/pid" ]; then kill "$(cat "$dir/pid")" 2>/dev/null || true; rm -f "$dir/pid"; fi
  rm -f "$dir/url.txt" ;;
*) echo "usage: vcsim.sh start|stop <state folder> [source folder]"; exit 2 ;;
esac
