#!/bin/sh
# Checks what the shared library exports: every defined dynamic symbol under the version node
# YUMOCLIENTSDK_1, and each one of the public API (a class of the SDK, its type information, or a
# name of the C interface); nothing of the standard library or of the SDK's insides.
#   scripts/check-exports.sh [LIBRARY]      (default: build/libYumoClientSdk.so, built first)
set -eu
cd "$(dirname "$0")/.."
library="${1:-}"
if [ -z "$library" ]; then
    build_dir=$(sh scripts/build.sh | tail -n 1)
    library="$build_dir/libYumoClientSdk.so"
fi
symbols=$(nm -D --defined-only "$library")
count=$(printf '%s\n' "$symbols" | grep -c .)
unversioned=$(printf '%s\n' "$symbols" | grep -v '@@YUMOCLIENTSDK_1$' | grep -v ' A YUMOCLIENTSDK_1$' || true)
public='^(ym|y[A-Z]|YM|CMD::|Yumo|IPCMsg_|NOTIFY_|AUDIODEVICE|k[A-Z]|keyOutlook|typeinfo for |typeinfo name for |vtable for |YUMOCLIENTSDK_1)'
foreign=$(nm -DC --defined-only "$library" | sed -E 's/^[0-9a-f]+ [A-Za-z] //; s/@@?YUMOCLIENTSDK_1$//' |
    grep -vE "$public" || true)
inside=$(nm -DC --defined-only "$library" | grep -E '::(Impl|State|Storage)\b' || true)
status=0
[ -z "$unversioned" ] || { echo "not under YUMOCLIENTSDK_1:"; printf '%s\n' "$unversioned"; status=1; }
[ -z "$foreign" ] || { echo "not of the public API:"; printf '%s\n' "$foreign"; status=1; }
[ -z "$inside" ] || { echo "the SDK's insides:"; printf '%s\n' "$inside"; status=1; }
if [ "$status" -ne 0 ]; then
    echo "check-exports: $library exports what it should not" >&2
    exit 1
fi
echo "check-exports: $count symbols, all of the public API, all under YUMOCLIENTSDK_1"
