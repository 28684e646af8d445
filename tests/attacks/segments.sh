# Sourced by testAttacks.sh: the kernel's shared memory belongs to all users. Keys can be taken, and all of it can be
# used up.
#
# shellcheck disable=SC2015,SC2016 # "fail" succeeds; what others run is quoted

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
    : >"$base/take"
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
    keys=()
    while read -r key _ _ size _; do
        [ "$key" = key ] || keys+=("$key" "$size")
    done < <("${stranger[@]}" cat /proc/sysvipc/shm)
    kill -TERM "$watching"
    wait "$watching" || fail "watch ended badly: $(cat "$base/watch")"
}

forgedIsNotBelieved() {
    says 3 "no provider is running" peek
    says 0 "$base/data" list
    says 0 "mountpoint=\"$base/data\"" list --format prometheus
    watch
    says 0 "$base/data" peek
    "$tool" peek | grep -q forged && fail "peek shows forged records"
    kill -TERM "$watching"
    wait "$watching" || fail "watch ended badly: $(cat "$base/watch")"
}

squattedKeys() {
    learnKeys
    take "${keys[@]}"
    forgedIsNotBelieved
}

squattedKeysGivenAway() {
    learnKeys
    GIVE=1 take "${keys[@]}"
    forgedIsNotBelieved
}

# A monitor that was killed leaves its segments; a stranger makes processes until he gets its number.
reusedNumber() {
    local odd=$base/open/$'a)\n1 (b' # whose entry in /proc has a line feed
    cp "$(command -v sleep)" "$odd"
    watch
    kill -KILL "$watching"
    wait "$watching" 2>/dev/null
    echo $((watching - 1)) >/proc/sys/kernel/ns_last_pid
    "${stranger[@]}" "$odd" 1000 &
    [ $! = "$watching" ] || fail "process $! instead of $watching"
    until grep -q '^Uid:.*\b65534$' "/proc/$!/status"; do sleep 0.1; done # before, it is root's
    says 3 "no provider is running" peek
    works "beside a process with the dead monitor's number"
    # A process of root's with that number began after the segments all the same.
    watch
    kill -KILL "$watching"
    wait "$watching" 2>/dev/null
    sleep 4 # segments know when they were made by the second
    echo $((watching - 1)) >/proc/sys/kernel/ns_last_pid
    sleep 1000 &
    says 3 "no provider is running" peek
    works "beside root's process with the dead monitor's number"
}

# exhaust PAGES: of the 64 that this machine has then, as segments of a page each.
exhaust() {
    echo 64 >/proc/sys/kernel/shmall
    : >"$base/take"
    "${stranger[@]}" perl -e '$| = 1; for (1 .. $ARGV[0]) { shmget(0, 4096, 01600) // die $! } print "taken\n"; sleep 1000' \
        "$1" >"$base/take" 2>&1 &
    until grep -q taken "$base/take"; do sleep 0.1; done
}
exhaustion() {
    local limit tries files
    limit=$(cat /proc/sys/kernel/shmall)
    "$tool" list >/dev/null
    exhaust 64
    says 5 "the provider cannot have shared memory" list
    ipcrm --all=shm
    # Enough is left to begin with, but not for the records of three file systems.
    for directory in "$base" "$base/open"; do
        echo "$base/disk $directory ext4 rw 0 0" >>"$base/etc/mtab"
    done
    mv "$agent/log/oxtfs.log" "$base/earlier.log"
    exhaust 61
    says 1 "shared memory cannot be read or written" list
    tries=$(cat "$agent"/log/oxtfs.log* | grep -c '=retry')
    files=$(find "$agent/log" -type f | wc -l)
    [ "$tries" -gt 0 ] && [ "$tries" -le 64 ] || fail "$tries tries"
    [ "$files" = 1 ] || fail "$files logs: what was traced before is lost"
    ls "$agent"/work/*.bak* >"$base/out" 2>/dev/null && fail "left behind: $(cat "$base/out")"
    echo "$base/disk $base/data ext4 rw 0 0" >"$base/etc/mtab"
    ipcrm --all=shm
    works "when there are segments again"
    echo "$limit" >/proc/sys/kernel/shmall
}
