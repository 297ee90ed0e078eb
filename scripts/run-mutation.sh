#!/bin/sh
# Makes one small fault at a time in the logic files, rebuilds and runs the suite: which faults the
# tests notice. The run docs/RELIABILITY.md keeps: 120 faults, seed 1, over the files below.
#
#   scripts/run-mutation.sh MUTATE_PY COPY [REPORT] [-- MORE OPTIONS OF MUTATE_PY]
#
# MUTATE_PY is the mutation tool; COPY a folder where a clone of this tree is made (or brought up
# to date) and built: the tool changes sources, so it never runs in the working tree itself.
# REPORT (default COPY/mutation-report.json) is rewritten after every fault; run again with
# `-- --resume` to evaluate only what it lacks. Several hours on a 2-core machine.
set -eu

usage() {
    echo "usage: $0 MUTATE_PY COPY [REPORT] [-- MUTATE_OPTIONS...]" >&2
    exit 64
}

[ $# -ge 2 ] || usage
tool=$1
copy=$2
shift 2
report=""
if [ $# -gt 0 ] && [ "$1" != "--" ]; then
    report=$1
    shift
fi
if [ $# -gt 0 ]; then
    [ "$1" = "--" ] || usage
    shift
fi
[ -f "$tool" ] || { echo "$0: MUTATE_PY: no such file: $tool (the mutation tool, mutate.py)" >&2; exit 64; }
tree=$(cd "$(dirname "$0")/.." && pwd)
case "$copy" in
    "$tree" | "$tree"/*) echo "$0: COPY: must lie outside the tree: $copy" >&2; exit 64 ;;
esac
[ -n "$report" ] || report="$copy/mutation-report.json"

if [ -d "$copy/.git" ]; then
    git -C "$copy" fetch -q "$tree" HEAD
    git -C "$copy" reset -q --hard FETCH_HEAD
else
    git clone -q "$tree" "$copy"
fi
# The standard library's assertions: a read one past a vector's end aborts instead of passing.
# The JavaScript module's tests drive the same C calls as the C tests, through Node.js: left out
# (the tool cannot name a test file for a test that node runs).
cmake -S "$copy" -B "$copy/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS=-D_GLIBCXX_ASSERTIONS -DYMSDK_BUILD_BENCH=OFF -DYMSDK_BUILD_NODE=OFF >/dev/null
cmake --build "$copy/build" >/dev/null

files="
3rdSDKIPC/YMSocketIPCChannel.cpp
3rdSDKIPC/YMSocketIPCHelper.cpp
3rdSDKIPC/ipc_socket/ySocketClientImpl.cpp
3rdSDKIPC/ipc_socket/ySocketConnection.cpp
3rdSDKIPC/ipc_socket/ySocketFraming.cpp
3rdSDKIPC/ipc_socket/ySocketInbound.cpp
3rdSDKIPC/ipc_socket/ySocketServerImpl.cpp
common/ymAppHelper.cpp
common/ymClientWatch.cpp
foundation/yStringUtils.cpp
foundation/ymFileUtils.cpp
foundation/ymTextRules.cpp
platform/linux/ymBundle.cpp
platform/linux/ymDirectoryWatch.cpp
platform/linux/ymFileManager.cpp
platform/linux/ymFolderWatch.cpp
platform/linux/ymIOLoop.cpp
platform/linux/ymMainLoop.cpp
platform/linux/ymNotificationCenter.cpp
platform/linux/ymProcessTable.cpp
platform/linux/ymPropertyList.cpp
platform/linux/ymUserDefaults.cpp
platform/linux/ymWorkspace.cpp
platform/linux/ymXarArchive.cpp
platform/ymValue.cpp
sdk/ymAPIErrorMgr.cpp
sdk/ymAudioDeviceStore.cpp
sdk/ymClientFeatureMgr.cpp
sdk/ymIPCMessage.cpp
sdk/ymIPCMsgMgr.cpp
sdk/ymLogHelper.cpp
sdk/ymNotificationDescription.cpp
sdk/ymNotificationTransport.cpp
sdk/ymSdkC.cpp
sdk/ymSdkImplement.cpp
sdk/ymSocketTransport.cpp
"
for file in $files; do
    [ -f "$copy/$file" ] || { echo "$0: $file is not in the tree any more: update the list" >&2; exit 1; }
done

# The slow-reader test needs more than 15 s under the suite's load: 40 s per test.
# shellcheck disable=SC2086
exec python3 "$tool" --src "$copy" --build "$copy/build" --count 120 --seed 1 --jobs 3 \
    --test-timeout 40 --suite-timeout 240 --early-stop 10 --report "$report" "$@" $files
