#!/bin/sh
# Compares the ABI of the built library with the baseline of the released one kept in the tree
# (abi/libYumoClientSdk.so.1.abi.xz, made by abidw from libabigail). Fails on an incompatible
# change: a public function, variable or type removed or changed. Additions pass, and are named.
#   scripts/check-abi.sh              build (scripts/build.sh), then compare
#   scripts/check-abi.sh --update     take the built library as the new baseline
# An intended incompatible change bumps the SONAME (the major version in CMakeLists.txt) and the
# version node of cmake/YumoClientSdk.map with it; then the baseline is taken anew (--update).
set -eu
cd "$(dirname "$0")/.."
baseline=abi/libYumoClientSdk.so.1.abi.xz
build_dir=$(sh scripts/build.sh | tail -n 1)
library=$(readlink -f "$build_dir/libYumoClientSdk.so")
describe() {
    abidw --headers-dir include/YumoClientSdk --drop-private-types --no-show-locs --no-corpus-path \
        --no-comp-dir-path --type-id-style hash --out-file "$1" "$library"
}
if [ "${1:-}" = "--update" ]; then
    describe abi/libYumoClientSdk.so.1.abi
    xz -9 -f abi/libYumoClientSdk.so.1.abi
    echo "check-abi: $baseline taken from $library"
    exit 0
fi
work=$(mktemp -d "${TMPDIR:-/tmp}/ymabi-XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
xz -dc "$baseline" >"$work/baseline.abi"
status=0
abidiff --headers-dir2 include/YumoClientSdk "$work/baseline.abi" "$library" >"$work/report.txt" || status=$?
# abidiff's status is a bit field: 1 error, 2 usage error, 4 the ABI changed, 8 incompatibly.
if [ $((status & 8)) -ne 0 ] || [ $((status & 3)) -ne 0 ]; then
    cat "$work/report.txt"
    echo "check-abi: the library is not compatible with $baseline (abidiff status $status)" >&2
    exit 1
fi
if [ $((status & 4)) -ne 0 ]; then
    cat "$work/report.txt"
    echo "check-abi: compatible additions to the ABI; take them into the baseline with --update when released"
else
    echo "check-abi: the library's ABI is the baseline's ($baseline)"
fi
