# Sourced by tests, first in one that does to the machine what no test may: it goes on in namespaces of its own, as root,
# with an empty directory `base` in memory. Processes, mounts and segments end with it. Exits with 77 where that cannot be.

skip() {
    echo "SKIP: $1"
    exit 77
}

if [ -z "${OXT_PRIVATE_BASE:-}" ]; then
    [ "$(id -u)" = 0 ] || skip "needs root"
    private=(unshare --mount --ipc --pid --net --fork --kill-child --mount-proc --propagation private)
    "${private[@]}" true 2>/dev/null || skip "no right to make namespaces"
    OXT_PRIVATE_BASE=$(mktemp -d) || skip "no temporary directory"
    export OXT_PRIVATE_BASE
    "${private[@]}" bash "$(realpath "$0")" "$@"
    result=$?
    rm -rf --one-file-system "$OXT_PRIVATE_BASE"
    exit $result
fi
base=$OXT_PRIVATE_BASE
mount -t tmpfs -o mode=755 none "$base" || skip "cannot mount"
# perl, because every Debian has it and its shell cannot do this
perl -e 'socket($s, 2, 2, 0); $up = pack("a16s", "lo", 0x41); ioctl($s, 0x8914, $up) or exit 1' || skip "no loopback device"

failures=0
fail() {
    echo "FAIL: $1"
    failures=$((failures + 1))
}
