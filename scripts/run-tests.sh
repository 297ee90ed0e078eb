#!/bin/sh
# Sets up, builds and runs every test through ctest, on a private session bus when none runs.
#   scripts/run-tests.sh                          the normal build
#   YMSDK_SANITIZE=address scripts/run-tests.sh   AddressSanitizer with UndefinedBehaviorSanitizer
#   YMSDK_SANITIZE=thread scripts/run-tests.sh    ThreadSanitizer
set -eu
cd "$(dirname "$0")/.."

build_dir=$(sh scripts/build.sh | tail -n 1)

# Sanitizer reports end the test that triggers them. They are written to files of their own: the
# SDK sends standard error to its log, in a home that the test removes.
reports="$(pwd)/$build_dir/sanitizer-reports"
rm -rf "$reports"
mkdir -p "$reports"
export ASAN_OPTIONS="${ASAN_OPTIONS:-abort_on_error=1:detect_leaks=1:log_path=$reports/asan}"
export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions=$(pwd)/tests/lsan.supp:print_suppressions=0}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1:log_path=$reports/ubsan}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$(pwd)/tests/tsan.supp:log_path=$reports/tsan}"

# The notification tests need a session bus: start a private one when none runs.
status=0
if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
    dbus-run-session -- ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)" || status=$?
else
    ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)" || status=$?
fi
for report in "$reports"/*; do
    [ -e "$report" ] || continue
    echo "== sanitizer report $report" >&2
    cat "$report" >&2
    status=1
done
exit "$status"
