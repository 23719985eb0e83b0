#!/usr/bin/env bash
# Installs what building and testing need on Debian, only what is missing.
set -euo pipefail
need=()
have() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }
# clang (with libclang-rt-14-dev): the native fuzzing build of the pure parsers;
# Go and govmomi: the vSphere simulator the live web-services client is tested against.
for pkg in cmake ninja-build g++-mingw-w64-x86-64-posix wine64 qemu-utils googletest clang libclang-rt-14-dev \
           golang-go golang-github-vmware-govmomi-dev; do
  have "$pkg" || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo="sudo"
  echo "installing: ${need[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${need[@]}"
fi
