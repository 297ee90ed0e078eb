#!/bin/sh
# Fails when an include points up the layers of the tree. From the bottom:
#
#   platform/  <-  foundation/  <-  3rdSDKIPC/  <-  common/  <-  sdk/  <-  tools/
#
# A file may include files of its own layer and of the layers below it. A public header in
# include/YumoClientSdk/ belongs to the layer of the code that implements it (the table below);
# tests/, bench/, fuzz/ and examples/ may include anything and are not checked.
set -eu
cd "$(dirname "$0")/.."

rank_of_folder() {
    case "$1" in
        platform) echo 0 ;;
        foundation) echo 1 ;;
        3rdSDKIPC) echo 2 ;;
        common) echo 3 ;;
        sdk) echo 4 ;;
        tools) echo 5 ;;
        *) echo "" ;;
    esac
}

# The layer of each public header.
public_header_folder() {
    case "$1" in
        ymBase.h | ymMainLoop.h | ymValue.h) echo platform ;;
        ymFileUtils.h | CMD.h | yStringUtils.h) echo foundation ;;
        ySocketDelegate.h | ySocketClientImpl.h | ySocketServerImpl.h | YMSocketIPCChannel.h | \
            YMSocketIPCChannelDelegate.h | YMSocketIPCHelper.h | ymIPCMsgDefine.h) echo 3rdSDKIPC ;;
        ymAppDefine.h | ymAppHelper.h) echo common ;;
        ymSdkImplement.h | ymSdkDelegate.h | ymAPIErrorMgr.h | ymClientFeatureMgr.h | ymIPCMsgMgr.h | \
            ymLogHelper.h | ymCommandStatus.h | ymAudioCommand.h | ymClientState.h | ymSdkC.h | YumoClientSdk.h) echo sdk ;;
        *) echo "" ;;
    esac
}

files=$(git ls-files 'platform/*' 'foundation/*' '3rdSDKIPC/*' 'common/*' 'sdk/*' 'tools/*' 'include/YumoClientSdk/*' |
    grep -E '\.(c|cpp|h)$')
for file in $files; do
    case "$file" in
        include/YumoClientSdk/*)
            folder=$(public_header_folder "$(basename "$file")")
            if [ -z "$folder" ]; then
                echo "$file: a public header with no layer: add it to the table in $0"
                continue
            fi
            ;;
        *) folder=${file%%/*} ;;
    esac
    rank=$(rank_of_folder "$folder")
    # Every "#include" of a file of the tree: "folder/name.h" or <YumoClientSdk/name.h>.
    grep -n -E '^[[:space:]]*#[[:space:]]*include[[:space:]]*["<]' "$file" | while IFS= read -r line; do
        number=${line%%:*}
        target=$(printf '%s\n' "$line" | sed -E 's/^[0-9]+:[[:space:]]*#[[:space:]]*include[[:space:]]*["<]([^">]*)[">].*/\1/')
        case "$target" in
            YumoClientSdk/*) target_folder=$(public_header_folder "${target#YumoClientSdk/}") ;;
            */*) target_folder=${target%%/*} ;;
            *)
                # A bare name: a public header beside another one, or a file of the same folder.
                case "$file" in
                    include/YumoClientSdk/*) target_folder=$(public_header_folder "$target") ;;
                    *) target_folder="" ;;
                esac
                ;;
        esac
        [ -n "$target_folder" ] || continue
        target_rank=$(rank_of_folder "$target_folder")
        [ -n "$target_rank" ] || continue
        if [ "$target_rank" -gt "$rank" ]; then
            echo "$file:$number: includes $target ($target_folder/) from below it ($folder/)"
        fi
    done
done >"${TMPDIR:-/tmp}/check-layers.$$"
upward=$(cat "${TMPDIR:-/tmp}/check-layers.$$")
rm -f "${TMPDIR:-/tmp}/check-layers.$$"
if [ -n "$upward" ]; then
    printf '%s\n' "$upward"
    echo "check-layers: $(printf '%s\n' "$upward" | wc -l) includes point up the layers" >&2
    exit 1
fi
echo "check-layers: every include points down (platform <- foundation <- 3rdSDKIPC <- common <- sdk <- tools)"
