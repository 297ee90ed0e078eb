#!/bin/sh
# Builds the libFuzzer targets with clang (AddressSanitizer and UBSan) into build-fuzz/ and runs
# each one for a while, from its seed corpus in fuzz/corpus/. Prints, per target, the executions
# and the coverage reached; a finding stops with its input under build-fuzz/artifacts/.
#   fuzz/run-fuzzers.sh [SECONDS] [TARGET ...]     (default 60 seconds, every target)
set -eu
cd "$(dirname "$0")/.."
seconds="${1:-60}"
[ $# -gt 0 ] && shift
targets="${*:-fuzz_socket_gathering fuzz_inbound_message fuzz_xar_package fuzz_property_list}"

sh scripts/setup.sh >/dev/null
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DYMSDK_SANITIZE=fuzzer \
    -DYMSDK_FUZZ=ON -DYMSDK_BUILD_TESTS=OFF -DYMSDK_BUILD_TOOLS=OFF >/dev/null
cmake --build build-fuzz --target $targets >/dev/null

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions=$(pwd)/tests/lsan.supp:print_suppressions=0}"
mkdir -p build-fuzz/artifacts build-fuzz/logs
status=0
printf '%-24s %10s %12s %8s %8s %s\n' target seconds executions cov ft result
for target in $targets; do
    work="build-fuzz/corpus/$target"
    mkdir -p "$work"
    log="build-fuzz/logs/$target.log"
    # -close_fd_mask=2: the SDK's log lines go nowhere; libFuzzer keeps its own output.
    if "build-fuzz/fuzz/$target" "$work" "fuzz/corpus/$target" -max_total_time="$seconds" -close_fd_mask=2 \
        -rss_limit_mb=4096 -timeout=20 -print_final_stats=1 -artifact_prefix="build-fuzz/artifacts/$target-" >"$log" 2>&1; then
        result=clean
    else
        result="FINDING (see $log)"
        status=1
    fi
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    last=$(grep -E '^#[0-9]+' "$log" | tail -n 1)
    cov=$(echo "$last" | sed -n 's/.*cov: \([0-9]*\).*/\1/p')
    ft=$(echo "$last" | sed -n 's/.*ft: \([0-9]*\).*/\1/p')
    printf '%-24s %10s %12s %8s %8s %s\n' "$target" "$seconds" "${runs:-?}" "${cov:-?}" "${ft:-?}" "$result"
done
exit "$status"
