#!/bin/bash
# Figure 7: handlers run for one notification after 50 facades were created and released, with a
# 5.5.0 client (notification transport).
#   fig7-facades.sh BIN BUILD_DIR   (FACADES, default 50)
. "$(dirname "$0")/lib.sh"
desk_setup "$1" "$2"
facades=${FACADES:-50}
desk_install_sim 5.5.0
desk_start_sim --quiet || exit 1
out=$("$BIN/facades" "$facades")
desk_stop_sim
handlers=$(desk_field "$out" handlers); answered=$(desk_field "$out" answered)
echo "7 released facades: after $facades facades created and released, one answer notification ran $handlers handlers (answer delivered: $answered)"
echo "json {\"figure\":7,\"facades\":$facades,\"handlers\":$handlers,\"answered\":$answered}"
