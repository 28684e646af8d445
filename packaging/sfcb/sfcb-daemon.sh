# shellcheck shell=sh
# The object manager's daemon on this machine: which processes are it, how it is restarted, and whether it answers.
# Sourced by programs of root, which set `shared` to the directory of this file, `namespace` to the monitor's, `config` to
# the daemon's configuration and `given_config` to the same if their caller named it, and which have a function
# `fail CODE LINE...`.
#
# A process is the daemon when it runs as root, in this file system, and what it runs is the installed program. Its name
# says nothing: every user can give it to a program of his, and what is started again here is started as root. So the
# program that is started is the installed one, never one that /proc names.

daemon_ends_within=45 # seconds after SIGTERM; then SIGKILL
daemon_answers_within=30

find_daemon() { # find_daemon PREFIX: sets `daemon`, the installed program; fails when there is none
    for daemon in "$1/sbin/sfcbd" "$1/bin/sfcbd" "$(command -v sfcbd)"; do
        if [ -x "$daemon" ]; then
            daemon=$(realpath "$daemon")
            return
        fi
    done
    return 1
}

is_daemon() { # is_daemon PID
    program=$(readlink "/proc/$1/exe" 2>/dev/null) || return 1
    [ "${program% (deleted)}" = "$daemon" ] || return 1 # deleted: replaced by an upgrade
    [ "$(stat -Lc %d:%i "/proc/$1/root/." 2>/dev/null)" = "$(stat -Lc %d:%i /.)" ] || return 1 # else a container's
    # Real, effective, saved and file system's user.
    [ "$(sed -n 's/^Uid:[[:space:]]*//p' "/proc/$1/status" 2>/dev/null | tr '\t' ' ')" = '0 0 0 0' ]
}

session_of() { # session_of PID: nothing when the process is gone
    sed -n 's/.*) [A-Za-z] [0-9]* [0-9]* \([0-9]*\) .*/\1/p' "/proc/$1/stat" 2>/dev/null || true
}

daemon_processes() { # daemon_processes [SESSION...]: of all sessions, or of these
    for entry in /proc/[0-9]*; do
        pid=${entry#/proc/}
        is_daemon "$pid" || continue
        if [ $# -gt 0 ]; then
            case " $* " in
            *" $(session_of "$pid") "*) ;;
            *) continue ;;
            esac
        fi
        echo "$pid"
    done
}

# A daemon begins a session, which its processes for providers and listeners stay in when it dies before them.
daemon_sessions() {
    for pid in $(daemon_processes); do
        session_of "$pid"
    done | sort -un
}

# Two daemons of different arguments are two object managers: which of them is meant, nobody can tell.
daemon_is_one() {
    [ "$(for pid in $(daemon_processes); do tr '\0' ' ' <"/proc/$pid/cmdline"; echo; done 2>/dev/null |
        sort -u | grep -c .)" -le 1 ]
}

# What starts it again: "unit NAME", "script PATH", or "itself".
daemon_starter() {
    for unit in sfcb sblim-sfcb; do
        if [ -d /run/systemd/system ] && systemctl is-active --quiet "$unit"; then
            echo "unit $unit"
            return
        fi
    done
    for script in /etc/init.d/sfcb /etc/init.d/sblim-sfcb; do
        if [ -x "$script" ]; then
            echo "script $script"
            return
        fi
    done
    echo itself
}

wait_for_end() { # wait_for_end SECONDS SESSION...
    end=$(($(date +%s) + $1))
    shift
    while [ -n "$(daemon_processes "$@")" ]; do
        [ "$(date +%s)" -lt $end ] || return 1
        sleep 0.5
    done
}

# An init script that kills and does not wait would start the new daemon beside the old one, which still has the port.
stop_daemon() { # stop_daemon STARTER SESSION...
    starter=$1
    shift
    case $starter in
    'unit '*) systemctl stop "${starter#unit }" || true ;; # below it is seen whether it has
    *)
        for pid in $(daemon_processes "$@"); do
            parent=$(sed -n 's/^PPid:[[:space:]]*//p' "/proc/$pid/status" 2>/dev/null) || continue # gone
            # The first of a session ends the others in order.
            is_daemon "${parent:-0}" || kill "$pid" 2>/dev/null || true
        done
        ;;
    esac
    wait_for_end $daemon_ends_within "$@" && return
    echo "The object manager does not end within $daemon_ends_within seconds: it is killed."
    for pid in $(daemon_processes "$@"); do
        kill -KILL "$pid" 2>/dev/null || true
    done
    wait_for_end 5 "$@" || fail 1 "the object manager (process $(daemon_processes "$@" | tr '\n' ' ')) cannot be ended."
}

start_daemon() { # start_daemon STARTER
    case $1 in
    'unit '*)
        systemctl start "${1#unit }" || fail 1 "the service ${1#unit } did not start: see journalctl -u ${1#unit }."
        ;;
    'script '*) "${1#script }" start || fail 1 "${1#script } start failed." ;;
    *)
        "$daemon" -d ${given_config:+-c "$given_config"} </dev/null >/dev/null 2>&1 || fail 1 "$daemon did not start."
        ;;
    esac
}

setting() { # setting NAME DEFAULT
    value=$([ -z "$config" ] || sed -n "s/^[[:space:]]*$1:[[:space:]]*\([^[:space:]]*\).*/\1/p" "$config" | tail -n 1)
    echo "${value:-$2}"
}

# Asks for a class and shows the answer, whatever it is. Over TLS nothing is asked: there it only has to listen.
ask_daemon() { # ask_daemon CLASS
    if [ "$(setting enableHttp true)" = true ] || [ "$(setting enableHttps false)" != true ]; then
        timeout 10 bash "$shared/sfcb-ask" "$(setting httpPort 5988)" "$namespace" "$1" 2>/dev/null
    else
        timeout 10 bash "$shared/sfcb-ask" "$(setting httpsPort 5989)" 2>/dev/null
    fi
}

wait_for_answer() { # wait_for_answer CLASS: sets `answer`
    end=$(($(date +%s) + daemon_answers_within))
    until answer=$(ask_daemon "$1") && [ -n "$answer" ]; do
        [ "$(date +%s)" -lt $end ] || return 1
        sleep 0.5
    done
}

# Ends when the new daemon has answered; `answer` is what it said. One that does not is given a second chance.
restart_daemon() { # restart_daemon CLASS
    starter=$(daemon_starter)
    for chance in 1 2; do
        # shellcheck disable=SC2046 # a word each
        stop_daemon "$starter" $(daemon_sessions)
        # Somebody may have started it meanwhile: whatever supervises it.
        [ -n "$(daemon_processes)" ] || start_daemon "$starter"
        wait_for_answer "$1" && return
        [ $chance = 2 ] || echo "The object manager does not answer within $daemon_answers_within seconds: once more."
    done
    fail 1 "the object manager was restarted and does not answer."
}
