#!/bin/bash
# Figure 2: memory of a companion that never runs its main loop while a peer on the meeting
# client's socket writes 4 KiB messages as fast as it can.
#   fig2-memory.sh BIN BUILD_DIR        (SECONDS, default 8)
. "$(dirname "$0")/lib.sh"
desk_setup "$1" "$2"
seconds=${SECONDS_RUN:-8}
out=$("$BIN/peer" flood "$seconds" "$BIN/companion" idle)
rss=$(desk_field "$out" rss_kib); hwm=$(desk_field "$out" hwm_kib)
written=$(desk_field "$out" written_mib); conns=$(desk_field "$out" connections)
rss_mib=$((rss / 1024)); hwm_mib=$((hwm / 1024))
echo "2 memory: companion not dispatching, peer flooding 4 KiB messages: RSS after ${seconds} s $rss_mib MiB (peak $hwm_mib MiB); peer wrote $written MiB over $conns connection(s)"
echo "json {\"figure\":2,\"seconds\":$seconds,\"rss_mib\":$rss_mib,\"hwm_mib\":$hwm_mib,\"written_mib\":$written,\"connections\":$conns}"
