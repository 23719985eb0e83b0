#!/bin/sh
# Builds a libFuzzer target natively (clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) from the parsers that need no Windows, seeds it
# (descriptors qemu-img writes; extent-list numbers; commit-list lines; change
# lists), and runs it for a bounded time. A crash fails the test; its input is
# printed by libFuzzer and becomes a regression seed.
# usage: run_fuzz.sh <source root> <seconds> <target: fuzz_<target>.cpp beside this script>
set -eu
root=$1
seconds=$2
target=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/corpus"
standin=$root/testing/vddk_standin/src
broker=$root/engine/fsys/shared/diskbroker
maxlen=4096
# build <flags and sources the target needs>: builds $work/fuzz and moves there.
build() {
    clang++ -std=c++17 -g -O1 -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all "$@" \
        "$root/tests/fuzz/fuzz_$target.cpp" -o "$work/fuzz"
    cd "$work"
}
case $target in
descriptor)
    build -DVDDKSIM_TEXT_ONLY -I"$standin" "$standin/descriptor.cpp"
    for format in monolithicFlat twoGbMaxExtentFlat twoGbMaxExtentSparse; do
        qemu-img create -q -f vmdk -o subformat=$format "seed-$format.vmdk" 3G
        head -c 4096 "seed-$format.vmdk" | tr -d '\000' > "corpus/$format.txt"
    done
    qemu-img create -q -f vmdk -b seed-monolithicFlat.vmdk -F vmdk child.vmdk
    # The sparse child keeps its descriptor at sector 1.
    dd if=child.vmdk bs=512 skip=1 count=20 2>/dev/null | tr -d '\000' > corpus/child.txt
    # Once found here: an extent after a vertical tab or form feed, written
    # back without it, read as a comment.
    printf 'version=1\nRW 5 ZERO\n\v#RW 7 ZERO\n\f#RW 9 ZERO\n' > corpus/blanks.txt
    ;;
extent_numbers)
    build -I"$root/engine/base/skxml/src"
    i=0
    for seed in 0 512 " 1536 " 18446744073709551615 18446744073709551616 -1 12abc; do
        i=$((i + 1))
        printf '%s' "$seed" > "corpus/seed$i"
    done
    ;;
write_runs)
    build -I"$broker" -I"$broker/include"
    printf '\003\002\001\010\001\010\005\100\000\020' > corpus/adjacent
    printf '\017\000\003\077\003\077\003\077' > corpus/jumps
    ;;
sector_lines)
    build -I"$broker" "$broker/sector_text.cpp" "$broker/sector_runs.cpp" "$broker/sector_runsort.cpp"
    # The first byte is the chunk size the file arrives in (0: one chunk).
    printf '\000%b' "0 8\r\n8 8\r\n" > corpus/written
    printf '\003%b' "1 1\n 2  3 \r\n-5 3\n4 0\n18446744073709551615 1\n18446744073709551616 1\n" > corpus/edges
    printf '\007%b' "99999999999999999999 1\n1 2 3\n\n12 4\r\n2 30" > corpus/torn
    # Once judged wrongly by this target: a line in order inside runs merged before.
    printf '\002%b' "6  8\n8  8\n8 5\n6  8\n" > corpus/inside
    ;;
run_sort)
    build -I"$broker" "$broker/sector_runsort.cpp"
    # Runs within 20 bits, interleaved; over all 64 bits; and long runs whose
    # first sectors and lengths together take about 64 bits.
    printf '\000\001\000\000\000\000\000\000\023\000\000\001\037\021\040\037\022\000\200\037' > corpus/near
    printf '\000\000\000\000\000\000\000\001\030\001\002\003\004\005\006\007\210\007\030\370\001\002\003\004\005\006\007\377' > corpus/far
    printf '\000\000\020\000\000\000\000\000\105\000\000\000\000\001\377\377\377\007\105\000\000\000\000\010\000\000\000\000' > corpus/long
    ;;
sector_list)
    build -I"$broker" "$broker/sector_listscan.cpp"
    # As the library and the tool write lists, as the benches do, and the edges.
    printf '%b' '<?xml version="1.0" encoding="UTF-8"?>\r\n<DiskChangeInfo><area startoffset="0" startlength="4096">' \
        '<extent offset="512" length="1536"/><extent offset="0" length="100"/></area></DiskChangeInfo>\r\n' \
        > corpus/written
    printf '%b' '\0357\0273\0277<?xml version=\00471.0\0047 encoding="utf-8" standalone="yes" ?>\n<DiskChangeInfo>\n' \
        ' <area startlength="1" >\n  <extent length = "1024" offset=\0047000512\0047 />\n </area >\n <area/>' \
        '</DiskChangeInfo >\n' > corpus/spaced
    printf '%b' '<DiskChangeInfo><area><extent offset="18446744073709551104" length="512"/>' \
        '<!-- x --></area></DiskChangeInfo>' > corpus/refused
    printf '%b' '<DiskChangeInfo><area><extent offset="1&#48;" length="5&amp;"/></area></DiskChangeInfo>' \
        > corpus/references
    printf '<DiskChangeInfo/>' > corpus/empty
    printf '<DiskChangeInfo><area><extent offset="" length="512"/></area></DiskChangeInfo>' > corpus/no-digits
    ;;
sparse_image|local_chain)
    # Whole sparse files: a base, a child naming it, one with data grains, one
    # with zeroed grains (qemu-io writes them), and any input kept from a crash
    # (tests/fuzz/regressions/<target>/).
    if [ "$target" = sparse_image ]; then
        build -DVDDKSIM_TEXT_ONLY -I"$standin" "$standin/sparse_format.cpp" "$standin/descriptor.cpp"
    else
        build -I"$broker" "$broker/vmdk_descriptor.cpp"
    fi
    head -c 65536 /dev/urandom > data.raw
    truncate -s 1M data.raw
    qemu-img convert -q -f raw -O vmdk data.raw corpus/data.vmdk
    qemu-img create -q -f vmdk corpus/base.vmdk 1M
    qemu-img create -q -f vmdk -b base.vmdk -F vmdk corpus/child.vmdk
    qemu-img create -q -f vmdk -o zeroed_grain=on corpus/zeroed.vmdk 4M
    qemu-io -c 'write -z 0 64k' -c 'write -P 7 128k 4k' corpus/zeroed.vmdk >/dev/null
    if [ -d "$root/tests/fuzz/regressions/$target" ]; then cp "$root/tests/fuzz/regressions/$target"/* corpus/; fi
    maxlen=262144
    ;;
*)
    echo "unknown target $target" >&2
    exit 2
    ;;
esac
./fuzz -max_total_time="$seconds" -max_len=$maxlen -print_final_stats=1 corpus
