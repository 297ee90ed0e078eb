#!/bin/bash
# Figure 6: wake-ups of the SDK's I/O thread in a companion following the client (client-state
# callback, no ~/Applications) while a shell appends to a file in $HOME 50 times a second for 4 s.
#   fig6-wakeups.sh BIN BUILD_DIR   (SECONDS_RUN, default 4; RATE, default 50)
. "$(dirname "$0")/lib.sh"
desk_setup "$1" "$2"
seconds=${SECONDS_RUN:-4}; rate=${RATE:-50}
out=$("$BIN/wakeups" "$seconds" "$rate")
quiet=$(desk_field "$out" quiet); busy=$(desk_field "$out" busy); appends=$(desk_field "$out" appends); busy_s=$(desk_field "$out" busy_s)
echo "6 busy home: I/O thread woke $busy times while a shell appended $appends times to a file in \$HOME ($rate a second, ${busy_s} s); $quiet times in ${seconds} s of quiet before"
echo "json {\"figure\":6,\"seconds\":$seconds,\"rate\":$rate,\"appends\":$appends,\"busy_s\":$busy_s,\"wakeups_busy\":$busy,\"wakeups_quiet\":$quiet}"
