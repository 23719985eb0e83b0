#!/bin/sh
# Builds a libFuzzer target natively (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) from the parsers that need no Windows, seeds it
# with descriptors qemu-img writes, and runs it for a bounded time. A crash
# fails the test and leaves its input in the work folder for a regression test.
# usage: run_fuzz.sh <source root> <seconds>
set -eu
root=$1
seconds=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
standin=$root/testing/vddk_standin/src
clang++ -std=c++17 -g -O1 -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all -DVDDKSIM_TEXT_ONLY \
    -I"$standin" \
    "$standin/descriptor.cpp" "$root/tests/fuzz/fuzz_descriptor.cpp" -o "$work/fuzz_descriptor"
mkdir "$work/corpus"
cd "$work"
for format in monolithicFlat twoGbMaxExtentFlat twoGbMaxExtentSparse; do
    qemu-img create -q -f vmdk -o subformat=$format "seed-$format.vmdk" 3G
    head -c 4096 "seed-$format.vmdk" | tr -d '\000' > "corpus/$format.txt"
done
qemu-img create -q -f vmdk -b seed-monolithicFlat.vmdk -F vmdk child.vmdk
# The sparse child keeps its descriptor at sector 1.
dd if=child.vmdk bs=512 skip=1 count=20 2>/dev/null | tr -d '\000' > corpus/child.txt
./fuzz_descriptor -max_total_time="$seconds" -max_len=4096 -print_final_stats=1 corpus
