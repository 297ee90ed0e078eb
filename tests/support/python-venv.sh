#!/bin/sh
# python-venv.sh PYTHON SOURCE: the module installed from the source tree into a fresh virtual
# environment with pip, offline (--no-build-isolation), and imported there, away from the tree.
set -eu
python=$1
source=$2
work=$(mktemp -d "${TMPDIR:-/tmp}/ymvenv-XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
"$python" -m venv "$work/venv"
cp -r "$source" "$work/source"
"$work/venv/bin/pip" install --quiet --no-index --no-build-isolation "$work/source"
cd "$work"
HOME="$work" "$work/venv/bin/python" -c '
import yumoclientsdk as ym, os, sys
assert ym.__file__.startswith(sys.prefix), ym.__file__
assert ym.AUDIO_CMD_RELEASE == 101
print("installed in", os.path.dirname(ym.__file__))
'
