#!/bin/sh
# Prints what including the SDK costs a companion: the lines the umbrella header preprocesses to,
# beside the lines of the standard headers its signatures need. Fails when the SDK adds more than
# 15 % (its own declarations are all it should add).
#   scripts/check-header-cost.sh [COMPILER]        (default c++, as C++20)
set -eu
cd "$(dirname "$0")/.."
# The compiler and the headers come from the set-up; on a fresh machine this is the first to need them.
sh scripts/setup.sh >/dev/null
compiler="${1:-c++}"
work=$(mktemp -d "${TMPDIR:-/tmp}/ymheaders-XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
printf '#include <string>\n#include <optional>\n#include <memory>\n#include <vector>\n#include <functional>\n#include <cstdint>\n#include <chrono>\n' >"$work/standard.cpp"
printf '#include <YumoClientSdk/YumoClientSdk.h>\n' >"$work/sdk.cpp"
standard=$("$compiler" -std=c++20 -E "$work/standard.cpp" | wc -l)
sdk=$("$compiler" -std=c++20 -E -Iinclude "$work/sdk.cpp" | wc -l)
percent=$(( (sdk - standard) * 100 / standard ))
echo "standard headers the signatures need: $standard lines"
echo "YumoClientSdk.h:                      $sdk lines ($percent % more)"
if [ $(( sdk * 100 )) -gt $(( standard * 115 )) ]; then
    echo "check-header-cost: the umbrella header costs more than 15 % over the standard headers" >&2
    exit 1
fi
