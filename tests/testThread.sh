#!/bin/bash
# oxtfs-thread before a client and an object manager of the tests' own: what it makes of the answers.
set -u
PATH=$PATH:/usr/sbin:/sbin
base=$(mktemp -d)
chmod 711 "$base"
trap 'end_listeners; rm -rf "$base"' EXIT
PATH=$base:$PATH
export base CREDENTIALS_DIRECTORY=$base
failures=0
fail() {
    echo "FAIL: $1"
    failures=$((failures + 1))
}
sed 's/^answers_within=.*/answers_within=1/; s/^mode_known_within=.*/mode_known_within=2/
    s/^tries_every=.*/tries_every=0.2/; s/^asks_every=.*/asks_every=0.2/' \
    "${1:?usage: testThread.sh OXTFS-THREAD}" >"$base/oxtfs-thread"

# Gives the password to whoever listens, as the client does, and answers as the files "thread", "start" and "config" say; a Start that is done changes the first.
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
read -r _ address <"$WBEMCLI_IND"
{ host=${address#*@} && host=${host%:*} && exec 3<>"/dev/tcp/${host//[][]/}/${address##*:}" && echo "Authorization: Basic b3h0ZnM6c2VjcmV0" >&3; } 2>/dev/null
case $question$answer in
*down) refused "Http Exception: Couldn't connect to server" ;;
*denied) refused "Http Exception: Invalid username/password." ;;
*readOnly) refused "Cim: (2) CIM_ERR_ACCESS_DENIED: no rights" ;;
*nonsense) refused "Cim: (1) CIM_ERR_FAILED: Generic Failure!!" ;;
configmode) refused "Cim: (1) CIM_ERR_FAILED: ServiceMode But NonThread Failure!!" ;;
start*) echo "localhost:5988/root/TAVRIN/AS:OXT_FileSystemThread StartMonitoringThread: $answer" ;;
thread*) echo "localhost:5988/root/TAVRIN/AS:OXT_FileSystemThread.*KEYBINDING=\"MISSING*\" ThreadRunning=$answer" ;;
config*) echo 'localhost:5988/root/TAVRIN/AS:OXT_FileSystemConfig.*KEYBINDING="MISSING*" MonitorCycle=60' ;;
esac
[ $question$answer != start0 ] || echo 1 >"$base/thread"
CLIENT
chmod +x "$base/wbemcli"
# A socket that listens, as the root of the tests or as a stranger: what comes there is in the file "heard", with its user.
cat >"$base/listen" <<'LISTENER'
use Socket qw(:DEFAULT inet_pton IPPROTO_IPV6 IPV6_V6ONLY);
my ($address, $port, $user) = @ARGV;
($<, $>) = ($user, $user) if $user;
my $six = $address =~ /:/;
my $bytes = inet_pton($six ? AF_INET6 : AF_INET, $address);
socket(my $listener, $six ? PF_INET6 : PF_INET, SOCK_STREAM, 0) or die;
setsockopt($listener, IPPROTO_IPV6, IPV6_V6ONLY, 1) if $six;
setsockopt($listener, SOL_SOCKET, SO_REUSEADDR, 1);
bind($listener, $six ? pack_sockaddr_in6($port, $bytes) : pack_sockaddr_in($port, $bytes)) or die "$address: $!";
listen($listener, 16);
$| = 1;
print "listens\n";
open(STDOUT, ">>", "$ENV{base}/heard") or die;
while (accept(my $client, $listener)) {
    print "$<: $_" while <$client>;
}
LISTENER
port=$((20000 + RANDOM % 10000))
listeners=()
listens() { # listens ADDRESS [USER]: fails where that address cannot be had
    rm -f "$base/listens"
    perl "$base/listen" "$1" $port "${2:-}" >"$base/listens" 2>&1 &
    listeners+=($!)
    within 20 grep -q . "$base/listens"
    grep -q listens "$base/listens"
}
end_listeners() {
    [ ${#listeners[@]} = 0 ] || kill "${listeners[@]}" 2>/dev/null
    wait "${listeners[@]}" 2>/dev/null
    listeners=()
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
address() { echo "oxtfs: http://oxtfs:secret@$1" >"$base/wbemcli.ind"; }
address nowhere.invalid
ends 1 "has no address" --once
address "127.0.0.1:$port/x"
ends 1 "has no line of the form" --once
address "127.0.0.1:$port"
ends 3 "nobody listens at port $port" --once
[ ! -s "$base/asked" ] || fail "asked where nobody listens"

# The password is for the object manager alone: whoever else has its port is not asked, at no address that the question
# could reach. Where the object manager has one that is preferred, a stranger at another one does no harm.
if [ "$(id -u)" = 0 ]; then
    while read -r asked exit sockets; do
        address "$asked:$port"
        answers 1 0 60
        : >"$base/heard" && chmod 666 "$base/heard"
        missing=
        for socket in $sockets; do
            listens "${socket%=*}" "${socket##*=}" || missing=$socket
        done
        [ -n "$missing" ] || ends "$exit" "$([ "$exit" = 0 ] || echo "a process of user 65534 listens at port $port")" --once
        end_listeners
        grep -q "65534: Auth" "$base/heard" && fail "a stranger hears the password: $sockets"
        [[ -z $missing || $missing == *:* ]] || fail "nobody can listen at $missing: $(cat "$base/listens")" # no IPv6 here
    done <<'TABLE'
127.0.0.1 3 127.0.0.1=65534
127.0.0.1 3 0.0.0.0=65534
localhost 3 127.0.0.1=65534
localhost 3 ::1=65534 127.0.0.1=0
localhost 3 ::=65534 127.0.0.1=0
127.0.0.1 0 ::=65534 0.0.0.0=0
127.0.0.1 0 ::1=65534 0.0.0.0=0
[::1] 0 0.0.0.0=65534 ::1=0
TABLE
    # An object manager with an account of its own.
    address "127.0.0.1:$port"
    listens 127.0.0.1 65534
    ends 0 "" --once --account nobody
    end_listeners
fi
listens 127.0.0.1 || fail "nobody can listen: $(cat "$base/listens")"
answers 0 0 mode
ends 2 "unknown argument" --twice
ends 2 "no account" --account no-such-account
ends 0 "Started the monitoring thread." --once
ends 0 "" --once
[ "$(starts)" = 1 ] || fail "a running thread is started again"
answers 0 1 60
ends 0 ""
answers 0 1 mode
ends 1 "ServiceMode But NonThread Failure!!"
answers down 0 mode
ends 3 "Couldn't connect to server"
answers nonsense 0 mode
ends 1 "Generic Failure!!"
# A user who may not call methods is not outside service mode, and one who is refused is not tried again.
for refused in denied readOnly; do
    answers $refused 0 mode
    ends 1 "refuses the user"
    answers 0 $refused 60
    ends 1 "refuses the user"
    [ "$(starts)" = 1 ] || fail "a refused user is tried again"
done
answers 0 nonsense 60
ends 1 "no answer of the monitor's"
answers - 0 mode
ends 1 "not understood"

# What it waits for comes in the following, however busy this machine is.
sed -i 's/^answers_within=.*/answers_within=20/; s/^mode_known_within=.*/mode_known_within=20/' "$base/oxtfs-thread"

# The service mode is known later.
answers 0 1 60
{ sleep 0.5 && echo 0 >"$base/start"; } &
ends 0 "Started the monitoring thread." --once

# It follows: a new object manager gets a new thread, an object manager that is away for a moment is waited for, and a
# thread that ends while the object manager stays has been stopped.
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
end_listeners
listens 127.0.0.1 || fail "nobody can listen anew: $(cat "$base/listens")"
echo 0 >"$base/thread"
within 20 started 2 || fail "not started again: $(cat "$base/said")"
asks && asks # it knows the new one
echo 0 >"$base/thread"
wait $follower && fail "a thread that was stopped is no failure"
grep -q "has ended" "$base/said" || fail "a stopped thread is not told: $(cat "$base/said")"
started 2 || fail "what a client stopped is started again"

[ "$failures" = 0 ] && echo "started, left alone, followed and given up"
exit $((failures > 0))
