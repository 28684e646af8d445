#!/bin/bash
# oxtfs-thread before a client and an object manager of the tests' own: what it makes of the answers.
set -u
PATH=$PATH:/usr/sbin:/sbin
base=$(mktemp -d)
trap 'end_managers; rm -rf "$base"' EXIT
PATH=$base:$PATH
export base CREDENTIALS_DIRECTORY=$base
failures=0
fail() {
    echo "FAIL: $1"
    failures=$((failures + 1))
}
sed 's/^answers_within=.*/answers_within=1/; s/^mode_known_within=.*/mode_known_within=1/
    s/^tries_every=.*/tries_every=0.2/; s/^asks_every=.*/asks_every=0.2/' \
    "${1:?usage: testThread.sh OXTFS-THREAD}" >"$base/oxtfs-thread"

# Answers as the files "thread", "start" and "config" say; a Start that is done changes the first.
cat >"$base/wbemcli" <<'CLIENT'
#!/bin/bash
refused() {
    printf '*\n* wbemcli: %s\n*\n' "$1"
    exit 16
}
case $* in
*StartMonitoringThread) question=start ;;
*OXT_FileSystemThread) question=thread ;;
*OXT_FileSystemConfig) question=config ;;
esac
answer=$(cat "$base/$question")
echo "$question" >>"$base/asked"
case $question$answer in
*down) refused "Http Exception: Couldn't connect to server" ;;
configmode) refused "Cim: (1) CIM_ERR_FAILED: ServiceMode But NonThread Failure!!" ;;
start*) echo "localhost:5988/root/TAVRIN/AS:OXT_FileSystemThread StartMonitoringThread: $answer" ;;
thread*) echo "localhost:5988/root/TAVRIN/AS:OXT_FileSystemThread.*KEYBINDING=\"MISSING*\" ThreadRunning=$answer" ;;
config*) echo 'localhost:5988/root/TAVRIN/AS:OXT_FileSystemConfig.*KEYBINDING="MISSING*" MonitorCycle=60' ;;
esac
[ $question$answer != start0 ] || echo 1 >"$base/thread"
CLIENT
chmod +x "$base/wbemcli"
cp "$(command -v sleep)" "$base/sfcbd"
managers=()
start_manager() {
    setsid "$base/sfcbd" 600 &
    managers+=($!)
}
end_managers() {
    [ ${#managers[@]} = 0 ] || kill "${managers[@]}" 2>/dev/null
    wait "${managers[@]}" 2>/dev/null
    managers=()
}
answers() { # answers THREAD START CONFIG
    echo "$1" >"$base/thread"
    echo "$2" >"$base/start"
    echo "$3" >"$base/config"
    : >"$base/asked"
}
within() { # within SECONDS COMMAND...: until it succeeds
    local end=$((SECONDS + $1))
    until "${@:2}" >/dev/null 2>&1; do
        [ $SECONDS -lt $end ] || return 1
        sleep 0.1
    done
}
ends() { # ends EXIT TEXT ARGUMENT...: all that it says is one line with the text, or nothing
    local output status
    output=$(timeout 20 sh "$base/oxtfs-thread" "${@:3}" 2>&1)
    status=$?
    if [ $status != "$1" ] || [[ $output != *"$2"* ]] || { [ -z "$2" ] && [ -n "$output" ]; }; then
        fail "oxtfs-thread ${*:3}: exit $status, expected $1 and '$2': $output"
    fi
}
starts() { grep -c start "$base/asked"; }

answers 0 0 mode
ends 1 "cannot be read" --once
echo "oxtfs: http://localhost:5988" >"$base/wbemcli.ind"
ends 2 "unknown argument" --twice
ends 0 "Started the monitoring thread." --once
ends 0 "" --once
[ "$(starts)" = 1 ] || fail "a running thread is started again"
answers 0 1 60
ends 0 ""
answers 0 1 mode
ends 1 "ServiceMode But NonThread Failure!!"
answers down 0 mode
ends 1 "Couldn't connect to server"
answers - 0 mode
ends 1 "not understood"

# The service mode is known later.
answers 0 1 60
{ sleep 0.5 && echo 0 >"$base/start"; } &
ends 0 "Started the monitoring thread." --once

# It follows: a new object manager gets a new thread, an object manager that is away for a moment is waited for, and a
# thread that ends while the object manager stays has been stopped.
start_manager
answers 0 0 mode
timeout 60 sh "$base/oxtfs-thread" >"$base/said" 2>&1 &
follower=$!
asks() { # once more
    : >"$base/asked"
    within 20 grep -q thread "$base/asked" || fail "it asks no more: $(cat "$base/said")"
}
started() { [ "$(grep -c Started "$base/said")" = "$1" ]; }
within 20 started 1 || fail "not started: $(cat "$base/said")"
echo down >"$base/thread"
asks # while the old one is there
end_managers
start_manager
echo 0 >"$base/thread"
within 20 started 2 || fail "not started again: $(cat "$base/said")"
asks && asks # it knows the new one
echo 0 >"$base/thread"
wait $follower && fail "a thread that was stopped is no failure"
grep -q "has ended" "$base/said" || fail "a stopped thread is not told: $(cat "$base/said")"
started 2 || fail "what a client stopped is started again"

[ "$failures" = 0 ] && echo "started, left alone, followed and given up"
exit $((failures > 0))
