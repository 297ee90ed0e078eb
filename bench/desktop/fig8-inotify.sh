#!/bin/bash
# Figure 8: the delay to hear the meeting client start when the user has no inotify instance left,
# then with them free again. Needs root: the measurement runs as uid 65534 (nobody) with a
# temporary home it owns, on a private session bus of its own, so that only its own inotify
# instances are used up.
#   fig8-inotify.sh BIN BUILD_DIR   (CAP_SECONDS, default 90)
. "$(dirname "$0")/lib.sh"
desk_setup "$1" "$2"
cap=${CAP_SECONDS:-90}
if [ "$(id -u)" != 0 ]; then
    echo "8 no inotify left: not measured (needs root, to run as uid 65534)"
    echo "json {\"figure\":8,\"measured\":false}"
    exit 0
fi
nobody_home=$(mktemp -d /tmp/ymdesk-nobody.XXXXXX)
chown 65534:65534 "$nobody_home"; chmod 700 "$nobody_home"
as_nobody() { setpriv --reuid=65534 --regid=65534 --clear-groups env -i HOME="$nobody_home" PATH=/usr/bin:/bin LANG=C.UTF-8 "$@"; }
as_nobody "$YMSIM" install --version 5.6.0 --dir "$nobody_home/Applications" >/dev/null
out=$(as_nobody dbus-run-session -- "$BIN/inotify_delay" "$nobody_home/Applications/yumoapp.app/Contents/MacOS/yumoapp" "$cap")
rm -rf "$nobody_home"
limit=$(cat /proc/sys/fs/inotify/max_user_instances)
instances=$(desk_field "$out" instances); refused=$(desk_field "$out" refused)
started=$(desk_field "$out" started_s); quit=$(desk_field "$out" quit_s); again=$(desk_field "$out" started_after_free_s)
echo "8 no inotify left: client start heard after $started s (cap $cap s; $instances instances held, then $refused; max_user_instances $limit); after freeing them: quit heard after $quit s, a new start after $again s"
js() { case "$1" in '>'*|'-'|'') echo "null" ;; *) echo "$1" ;; esac; }
echo "json {\"figure\":8,\"measured\":true,\"cap_s\":$cap,\"instances\":$instances,\"refused\":\"$refused\",\"started_s\":$(js "$started"),\"quit_s\":$(js "$quit"),\"started_after_free_s\":$(js "$again"),\"started_raw\":\"$started\",\"started_after_free_raw\":\"$again\"}"
