# shellcheck shell=bash
# The kernel's shared memory belongs to all users: keys can be taken, and all of it can be used up.

# take NAME KEY SIZE...: makes segments under these keys, with records of a file system /forged in them, and keeps
# living. GIVE=uid gives them to that user.
take() {
    cat >"$base/open/take.pl" <<'PERL'
use strict;
my %bytes = (8 => pack("S4", 60, 10, 3600, 60), 4 => pack("S2", 1, 0));
$bytes{1840} = pack("S x2 a256 a256 a256 a256 s x2 a256 S x2 L4 s x2 a256 q2 a256", 1, "", "", "", "/dev/forged", 0, "", 1,
    100, 100, 10, 10, 3, "/forged", 1000, 1, "ext4");
while (my ($key, $size) = splice @ARGV, 0, 2) {
    my $id = shmget($key, $size, 03600) // die "shmget: $!";
    shmwrite($id, $bytes{$size}, 0, $size) or die "shmwrite: $!";
    next unless $ENV{GIVE};
    my $about = "";
    shmctl($id, 2, $about) or die;
    substr($about, 4, 8) = pack("L2", $ENV{GIVE} - 1, $ENV{GIVE} - 1); # uid and gid, not the creator's
    shmctl($id, 1, $about) or die "IPC_SET: $!";
}
$| = 1;
print "taken\n";
sleep 1000;
PERL
    "${stranger[@]}" perl "$base/open/take.pl" "$@" >"$base/take" 2>&1 &
    for _ in $(seq 100); do
        grep -q taken "$base/take" && return
        sleep 0.1
    done
    fail "cannot take: $(cat "$base/take")"
}

# The keys of a monitor that has worked here, for everybody to read.
learnKeys() {
    watch
    keys=$("${stranger[@]}" cat /proc/sysvipc/shm | while read -r key _ _ size _; do
        [ "$key" = key ] || echo "$key $size"
    done)
    kill -TERM $watching
    wait $watching || fail "watch ended badly: $(cat "$base/watch")"
}

forgedIsNotBelieved() {
    says 3 "no provider is running" peek
    says 0 "$base/data" list
    says 0 "mountpoint=\"$base/data\"" list --format prometheus
    watch
    says 0 "$base/data" peek
    "$tool" peek | grep -q forged && fail "peek shows forged records"
    kill -TERM $watching
    wait $watching || fail "watch ended badly: $(cat "$base/watch")"
}

squattedKeys() {
    learnKeys
    take $keys
    forgedIsNotBelieved
}

squattedKeysGivenAway() {
    learnKeys
    GIVE=1 take $keys
    forgedIsNotBelieved
}

# A monitor that was killed leaves its segments; a stranger makes processes until he gets its number.
reusedNumber() {
    watch
    kill -KILL $watching
    wait $watching 2>/dev/null
    echo $((watching - 1)) >/proc/sys/kernel/ns_last_pid
    "${stranger[@]}" sleep 1000 &
    [ $! = $watching ] || fail "process $! instead of $watching"
    says 3 "no provider is running" peek
    works "beside a process with the dead monitor's number"
    # A process of root's with that number began after the segments all the same.
    watch
    kill -KILL $watching
    wait $watching 2>/dev/null
    sleep 4 # segments know when they were made by the second
    echo $((watching - 1)) >/proc/sys/kernel/ns_last_pid
    sleep 1000 &
    works "beside root's process with the dead monitor's number"
}

exhaustion() {
    "$tool" list >/dev/null
    mv "$agent/log/oxtfs.log" "$base/earlier.log"
    "${stranger[@]}" perl -e '$| = 1; while (defined shmget(0, 4096, 01600)) {} print "$!\n"; sleep 1000' >"$base/take" &
    until grep -q space "$base/take"; do sleep 0.1; done
    "$tool" list >"$base/out" 2>&1 && fail "list found a segment: $(cat "$base/out")"
    local tries files
    tries=$(cat "$agent"/log/oxtfs.log* | grep -c '=retry')
    files=$(ls "$agent/log" | wc -l)
    [ "$tries" -gt 0 ] && [ "$tries" -le 64 ] || fail "$tries tries"
    [ "$files" = 1 ] || fail "$files logs: what was traced before is lost"
    [ "$(ls -A "$agent/work" | grep -c bak)" = 0 ] || fail "left behind: $(ls -A "$agent/work")"
    ipcrm --all=shm
    works "when there are segments again"
}
