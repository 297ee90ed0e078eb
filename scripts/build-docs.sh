#!/bin/sh
# Builds the API reference into build/docs/html from the public headers; fails on any warning
# (an undocumented public item among them).
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh >/dev/null
mkdir -p build/docs
doxygen docs/Doxyfile
if [ -s build/docs/warnings.txt ]; then
    cat build/docs/warnings.txt >&2
    echo "build-docs: $(wc -l < build/docs/warnings.txt) warnings" >&2
    exit 1
fi
echo "build/docs/html/index.html"
