#!/bin/sh
# Sets up, builds and runs every test through ctest, on a private session bus when none runs.
#   scripts/run-tests.sh                          the normal build
#   YMSDK_SANITIZE=address scripts/run-tests.sh   AddressSanitizer with UndefinedBehaviorSanitizer
#   YMSDK_SANITIZE=thread scripts/run-tests.sh    ThreadSanitizer
set -eu
cd "$(dirname "$0")/.."

build_dir=$(sh scripts/build.sh | tail -n 1)

# Sanitizer reports end the test that triggers them.
export ASAN_OPTIONS="${ASAN_OPTIONS:-abort_on_error=1:detect_leaks=1}"
export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions=$(pwd)/tests/lsan.supp:print_suppressions=0}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1:suppressions=$(pwd)/tests/tsan.supp}"

# The notification tests need a session bus: start a private one when none runs.
if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
    exec dbus-run-session -- ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)"
fi
exec ctest --test-dir "$build_dir" --output-on-failure -j "$(nproc)"
