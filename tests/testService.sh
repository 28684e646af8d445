#!/bin/bash
# A monitor as the service runs it, over real file systems: asked by root and by an ordinary user, filled, with its data
# directory taken away, with crowds of clients, and killed.
set -u
PATH=$PATH:/usr/sbin:/sbin
tool=${1:?usage: testService.sh OXTFSCTL AGENT_DIRECTORY}
agent=${2:?usage: testService.sh OXTFSCTL AGENT_DIRECTORY}
[ -n "${OXT_PRIVATE_BASE:-}" ] || exec 9</proc/self/ns/mnt # a way back, for the browser
. "$(dirname "$0")/fileSystems.sh"

# An ordinary user has to get to the command, whatever lies above it.
cp "$tool" "$base/oxtfsctl"
port=$((20000 + RANDOM % 20000))
read -r device directory _ </etc/mtab

within() { # seconds command...: until it succeeds
    local end=$((SECONDS + $1))
    shift
    until "$@" >/dev/null 2>&1; do
        [ $SECONDS -lt $end ] || return 1
        sleep 0.1
    done
}
http() { # target: the answer
    exec {web}<>"/dev/tcp/127.0.0.1/$port" || return 1
    printf 'GET %s HTTP/1.1\r\nHost: localhost\r\n\r\n' "$1" >&"$web"
    timeout 5 cat <&"$web"
    exec {web}>&-
}
says() { http "$1" | grep -q "$2"; }
expect() { # what command...
    local what=$1
    shift
    within 15 "$@" || fail "$what"
}
user=(setpriv --reuid=65534 --regid=65534 --clear-groups "$base/oxtfsctl")
"${user[@]:0:4}" test -x "$agent" || skip "needs an agent directory that other accounts reach"
status() { # expected text command...: its exit code and the beginning of what it says
    local code=$1 text=$2
    shift 2
    said=$(timeout 5 "$@" 2>&1)
    equal "exit code of $*" $? "$code"
    case $said in *"$text"*) ;; *) fail "$* says '$said', not '$text'" ;; esac
}
# What a service manager hears, in a file. perl, because a shell has no such sockets.
perl -e 'socket($s, 1, 2, 0) && bind($s, pack("Sa108", 1, $ARGV[0])) or exit 1; $| = 1;
    print "$m\n" while defined recv($s, $m, 4096, 0)' "$base/notify" >"$base/told" &
told() { tac "$base/told" | grep -m 1 ^STATUS= | grep -q "$1"; } # the last status
start() {
    NOTIFY_SOCKET=$base/notify WATCHDOG_USEC=4000000 "$tool" watch >>"$base/out" 2>>"$base/err" &
    watch=$!
    expect "the monitor answers" "${user[@]}" list
}

cat >"$base/alert" <<'EOT'
#!/bin/sh
echo "$OXTFS_EVENT $OXTFS_MOUNTPOINT $OXTFS_FREE_MIB" >>"$(dirname "$0")/alerts"
EOT
chmod 755 "$base/alert"
cat >"${agent}oxtfs.toml" <<EOT
cycle = 10
listen = ["127.0.0.1:$port"]
exec = ["$base/alert"]
[[rule]]
mount = "$directory"
warning = "30%"
EOT
start
size=$(mib size "$directory")
expect "it is ready" grep -q READY=1 "$base/told"

# Who asks gets an answer, root may change, and what was changed is saved.
status 0 "$directory" "${user[@]}" list --json
status 0 "the rule in line 4" "${user[@]}" get "$directory"
status 1 "only root" "${user[@]}" warn "$directory" 20%
status 0 running "$tool" thread status --json
status 1 "the running monitor itself" "$tool" thread stop
status 3 "a monitor is running" "$tool" list --force
status 0 "" "$tool" fatal "$directory" 7M
status 0 "" "$tool" monitor "$directory" off
status 0 "" "$tool" monitor "$directory" on
status 0 "" "$tool" config --cycle 20
status 0 "" "$tool" config --cycle 10
status 0 7 "$tool" peek --json
status 0 '"fatal": 7,' "$tool" save --json
printf '[[rule]]\nwarning = "31%%"\n' >"$base/rules"
status 0 "warning threshold" "$tool" apply --dry-run "$base/rules"
equal "a dry run" "$("$tool" apply)" ""
cp "${agent}oxtfs.toml" "$base/settings"
echo 'cycles = 1' >"${agent}oxtfs.toml"
kill -HUP $watch
expect "a wrong file is named" grep -q "oxtfs.toml:1: there is no setting 'cycles'" "$base/err"
status 0 "the rule in line 4" "$tool" get "$directory"
# What the monitor sets when it reads the file for apply is shown, too.
sed -i 's/30%/32%/' "$base/settings" && cp "$base/settings" "${agent}oxtfs.toml"
status 0 "$directory: warning threshold" "$tool" apply
equal "once more" "$("$tool" apply)" ""
status 0 "the rule in line 4" "$tool" get "$directory"
sed 's/^cycle.*/cycle = 11/' "$base/settings" >"${agent}oxtfs.toml"
kill -HUP $watch
within 5 sh -c "$tool config | grep -q 'Cycle: 11'" || fail "a new cycle"
status 0 "" "$tool" config --cycle 10

# A real file system is filled: all tell the same within a cycle.
{ fallocate -l "$((size / 2 + size / 4))M" "$directory/filler" && sync -f "$directory"; } || fail "cannot fill"
expect "the program for alerts" grep -q "freeSpaceWarning $directory" "$base/alerts"
equal "its free space" "$(cut -d ' ' -f 3 "$base/alerts")" "$(mib avail "$directory")"
expect "page" says / '<tr class="warning">'
expect "alerts" says /api/v1/alerts freeSpaceWarning
expect "metrics" says /metrics "oxtfs_filesystem_status{.*mountpoint=\"$directory\".*} 2"
if command -v chromium >/dev/null; then
    # Among the mounts outside: a browser needs more of /etc.
    nsenter --mount=/proc/self/fd/9 timeout 60 chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
        --disable-background-networking --disable-component-update --disable-sync --user-data-dir="$base/chromium" \
        --virtual-time-budget=15000 --dump-dom "http://127.0.0.1:$port/" 2>/dev/null >"$base/dom"
    grep -q "<td data-label=\"Status\" class=\"status\">warning</td>" "$base/dom" || fail "the page in a browser"
    grep -q 'id="silent".* hidden' "$base/dom" || fail "the page could not refresh itself"
else
    echo "without a browser: no chromium"
fi

# 250 connections that are slow, broken or oversized, or read nothing: neither a command nor a pass waits longer than a
# tenth of the cycle.
passes() { grep -c ' pass [0-9]*:' "$base/out"; }
crowd=()
for i in $(seq 250); do
    exec {fd}<>"/dev/tcp/127.0.0.1/$port" || { fail "connection $i"; break; }
    crowd+=("$fd")
    case $((i % 5)) in
    0) printf 'GET / HT' >&$fd ;;
    1) printf 'rubbish\r\n\r\n' >&$fd ;;
    2) printf 'GET /api/v1/filesystems HTTP/1.1\r\n\r\n' >&$fd ;;
    3) printf 'GET / HTTP/1.1\r\nA: %09000d\r\n\r\n' 0 >&$fd ;;
    esac
done 2>/dev/null
before=$(passes)
timeout 1 "$tool" list >/dev/null || fail "list waits for the crowd"
timeout 1 "$tool" warn "$directory" 29% >/dev/null || fail "warn waits for the crowd"
within 2 says /healthz "200 OK" || fail "another client waits for the crowd"
within 11 test "$(passes)" -gt "$before" || [ "$(passes)" -gt "$before" ] || fail "a pass waits for the crowd"
for fd in "${crowd[@]}"; do exec {fd}>&-; done

# Without its data directory it says so once, and once that all is well again.
mv "${agent}data" "${agent}away"
expect "a failing pass is told" says /metrics "oxtfs_monitor_up 0"
expect "to a prober, too" says /healthz "503"
expect "and to the service manager" told "passes fail: fopen"
expect "it took no second" says /metrics "last_pass_duration_seconds 0"
beats=$(grep -c WATCHDOG=1 "$base/told")
sleep 11
[ "$(grep -c WATCHDOG=1 "$base/told")" -ge $((beats + 4)) ] || fail "the watchdog hears less than each two seconds"
mv "${agent}away" "${agent}data"
expect "all is well again" says /metrics "oxtfs_monitor_up 1"
expect "the line of it" grep -q 'succeed again' "$base/err"
expect "the service manager hears it, too" told "1 warning, next look in [0-9]* s"
equal "lines of it" "$(grep -c 'passes fail: fopen.*No such file' "$base/err"),$(grep -c 'succeed again' "$base/err")" 1,1

# What was set outlives a kill, also what was set otherwise than the settings file has it. The socket of the dead one is
# replaced, and a last save that fails is an exit code.
kill -9 $watch
wait $watch 2>/dev/null
status 0 '"fatal": 7,' "$tool" list --json
start
status 0 '"fatal": 7,' "${user[@]}" list --json
status 0 "Cycle: 10" "$tool" config
equal "monitors at once" "$(timeout 5 "$tool" watch --cycle 30 2>&1 | head -n 1)" \
    "oxtfsctl: a monitor is running here, and there can be one only."
mv "${agent}data" "${agent}away"
kill -TERM $watch
wait $watch
equal "exit code" $? 1
grep -q "the last save failed: fopen.*No such file" "$base/err" || fail "the last save: $(tail -n 1 "$base/err")"
mv "${agent}away" "${agent}data"
equal "segments" "$(($(wc -l </proc/sysvipc/shm) - 1))" 0

[ "$failures" = 0 ] && echo "the service holds"
exit $((failures > 0))
