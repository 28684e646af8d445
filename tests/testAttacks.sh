#!/bin/bash
# What others on the machine can do to the monitor, tried as the account that it comes from: each attack fails, and the
# monitor goes on. docs/trust.md has the table with what each of them once reached.
#
# Needs root and the right to make namespaces. Exits with 77 where it cannot run.
# shellcheck disable=SC2015 # "fail" succeeds
set -u
usage="usage: testAttacks.sh OXTFSCTL AGENT_DIRECTORY OXTFS-REGISTER DAEMON"
tool=${1:?$usage} agent=${2%/} register=${3:?$usage} daemon=${4:?$usage}
here=$(dirname "$(realpath "$0")")
. "$here/privateMachine.sh"
. "$here/fakeSfcb.sh"

# Before a command: an account without any right.
stranger=(setpriv --reuid=65534 --regid=65534 --clear-groups --bounding-set=-all --inh-caps=-all)

attack() { # attack ACCOUNT WHAT FUNCTION
    local before=$failures
    [[ $3 == *$only* ]] || return
    umount "$agent" 2>/dev/null
    cp -a "$agent/lib" "$base"
    mount -t tmpfs -o mode=755 none "$agent" || skip "cannot mount over $agent"
    mkdir -m 750 "$agent/data" "$agent/work" "$agent/log"
    mv "$base/lib" "$agent"
    ipcrm --all=shm
    "$3"
    # shellcheck disable=SC2046 # a number each
    kill $(jobs -p) 2>/dev/null
    wait 2>/dev/null
    [ "$failures" = "$before" ] && echo "repelled: $1: $2"
}

# A monitor, left to work until it is ended, and with its first pass done; started by way of the command `through`.
through=()
watch() { # watch [OPTION...]
    : >"$base/watch" # here: the line of the one before could be taken for this one's
    "${through[@]}" "$tool" watch "$@" >>"$base/watch" 2>&1 &
    watching=$!
    for _ in $(seq 600); do
        grep -qs "pass 1" "$base/watch" && return
        sleep 0.1
    done
    fail "no pass: $(cat "$base/watch")"
}
works() { # works WHAT: whether a monitor can be hosted, with its own file system
    local output
    output=$("$tool" list --direct 2>&1) && [[ $output == *"$base/disk"* ]] || fail "$1: list says $output"
}
says() { # says EXIT TEXT ARGUMENT...
    local output status
    output=$(timeout 30 "$tool" "${@:3}" 2>&1)
    status=$?
    [ "$status" = "$1" ] && [[ $output == *"$2"* ]] || fail "oxtfsctl ${*:3}: exit $status, expected $1 and '$2': ${output:0:400}"
}

only=${5:-}
for file in "$here"/attacks/*.sh; do
    # shellcheck source=attacks/names.sh
    . "$file"
done
fixture
attack "any user" "a process of the daemon's name" fakeDaemon
attack "any user" "answers from the object manager's port" answeredByAStranger
attack "any user" "the keys that a monitor left" squattedKeys
attack "any user" "... with segments given to root" squattedKeysGivenAway
attack "any user" "... or with the process number of a dead monitor" reusedNumber
attack "any user" "all segments of the kernel taken" exhaustion
attack "any user" "a lock on the directory work/" lockedDirectory
attack "any user" "a mount point that is a command, and Tab" completion
attack "any user" "names that steer a terminal" names
attack "log's writer" "links, devices and endless files for log" logFiles
attack "log's writer" "the same for watch" watchedFiles
attack "metrics' reader" "links and directories in the way of the metrics" metrics
attack "metrics' reader" "a directory in the place of oxtfs.prom, and apt remove" removal
attack "administrator" "apt purge beside the agent's files" purge
attack "administrator" "directories that others can write" openDirectories
attack "administrator" "the services without their rights" fewRights

exit $((failures > 0))
