# What the commands of commands.txt are run over: sourced by each of its lines that begin with "sh".

# add DIRECTORY MIB USED TYPE [DEVICE]: a tmpfs, which the mount table calls a disk's
add() {
    mkdir -p "$1" && mount -t tmpfs -o size="$2m" none "$1"
    [ "$3" = 0 ] || fallocate -l "$3M" "$1/.used"
    enter "$@"
}
# enter DIRECTORY MIB USED TYPE [DEVICE]: into the mount table alone
enter() {
    number=$(($(wc -l </mnt/etc/mtab) + 1))
    device=${5:-/mnt/disk$number}
    [ -e "$device" ] || mknod "$device" b 8 "$number"
    printf '%s %s %s rw 0 0\n' "$device" "$(printf %s "$1" | sed 's/\\/\\134/g; s/ /\\040/g; s/\t/\\011/g')" "$4" >>/mnt/etc/mtab
}
