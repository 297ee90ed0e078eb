#!/bin/bash
# Figure 4: connections to a peer on the meeting client's socket that accepts and closes at once,
# while a companion has the SDK up (running its main loop) for 5 s. The companion's log is not cut
# while it runs (YUMOCLIENTSDK_LOG_LIMIT=0), so that every line it wrote is counted.
#   fig4-accept-close.sh BIN BUILD_DIR   (SECONDS_RUN, default 5)
. "$(dirname "$0")/lib.sh"
desk_setup "$1" "$2"
seconds=${SECONDS_RUN:-5}
out=$(YUMOCLIENTSDK_LOG_LIMIT=0 "$BIN/peer" accept-close "$seconds" "$BIN/companion" loop "$((seconds + 5))")
accepted=$(desk_field "$out" accepted)
log=$(desk_log)
lines=0; bytes=0
if [ -f "$log" ]; then lines=$(wc -l < "$log"); bytes=$(stat -c %s "$log"); fi
echo "4 accept-close peer: $accepted connections in ${seconds} s; companion's log $lines lines ($((bytes / 1024)) KiB)"
echo "json {\"figure\":4,\"seconds\":$seconds,\"connections\":$accepted,\"log_lines\":$lines,\"log_bytes\":$bytes}"
