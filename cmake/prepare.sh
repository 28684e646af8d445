# Sourced by the scripts at the top of the tree: sees that what they need is there, installs it where there is apt, and
# builds. Everything told goes to stderr, so that a script's own output stays what it is for.

log() { printf '%s\n' "$*" >&2; }

# What a build, its tests and its measurements need: the Debian package, how to tell that it is there, and what it is,
# in words that another system's packages can be found by. What is not here is a program with its package's name.
NEEDS='
cmake              | cmake_version                          | CMake 3.25 or newer
ninja-build        | program ninja                          | Ninja, the build program
g++                | program c++                            | a C++17 compiler that is called c++ (GCC or clang)
pkg-config         | program pkg-config                     | pkg-config or pkgconf
libcli11-dev       | header CLI/CLI.hpp                     | CLI11, a library of C++ headers for command lines
libsmartcols-dev   | header libsmartcols/libsmartcols.h     | libsmartcols of util-linux, with its headers
libgtest-dev       | header gtest/gtest.h                   | GoogleTest
libgmock-dev       | header gmock/gmock.h                   | GoogleMock, a part of GoogleTest
nlohmann-json3-dev | header nlohmann/json.hpp               | nlohmann/json, a library of C++ headers for JSON
libboost-dev       | header boost/beast/http/parser.hpp     | the headers of Boost, Beast among them
libtomlplusplus-dev | header toml++/toml.h                  | toml++, a library of C++ headers for TOML
e2fsprogs          | program mkfs.ext4                      | e2fsprogs: mkfs.ext4
xfsprogs           | program mkfs.xfs                       | xfsprogs: mkfs.xfs
clang              | program clang++                        | clang 13 or newer
libclang-rt-dev    | sanitizers clang++                     | the sanitizer libraries of clang (compiler-rt)
libclang-rt-19-dev | sanitizers clang++-19                  | the same of clang 19
build-essential    | installed build-essential              | build-essential: what Debian packages are built with
debhelper          | program dh                             | debhelper 13, which makes Debian packages
libbenchmark-dev   | header benchmark/benchmark.h           | the library benchmark
gnuplot-nox        | program gnuplot                        | gnuplot
clang-format-14    | program clang-format-14                | clang-format 14: other versions format differently
clang-tidy-14      | program clang-tidy-14                  | clang-tidy 14
g++-aarch64-linux-gnu | program aarch64-linux-gnu-g++       | a GCC that compiles for aarch64
'
BUILD_PACKAGES=(cmake ninja-build g++ pkg-config libcli11-dev libsmartcols-dev libgtest-dev libgmock-dev nlohmann-json3-dev
    libboost-dev libtomlplusplus-dev)

program() { command -v "$1" >/dev/null || [ -x "/usr/sbin/$1" ] || [ -x "/sbin/$1" ]; }
header() { printf '#if !__has_include(<%s>)\n#error\n#endif\n' "$1" | c++ -E -x c++ - >/dev/null 2>&1; }
installed() { dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null | grep -qx installed; }
sanitizers() { echo 'int main() {}' | "$1" -fsanitize=address,fuzzer-no-link -x c++ - -o /dev/null 2>/dev/null; }
cmake_version() {
    local version
    version=$(cmake --version 2>/dev/null | sed -n 's/^cmake version //p')
    [ -n "$version" ] && printf '3.25\n%s\n' "$version" | sort -VC
}

# each_missing COMMAND NAME...: COMMAND with package and words for each NAME that is not there.
each_missing() {
    local command=$1 name row package test words
    shift
    for name in "$@"; do
        row=$(grep "^$name " <<<"$NEEDS") || row="$name | program $name | $name"
        IFS='|' read -r package test words <<<"$row"
        $test || "$command" "${package%% *}" "${words# }"
    done
}
missing_package() { echo "$1"; }
missing_words() { log "    $2 (in Debian: $1)"; }

# install_packages NAME...: what is missing of them, so that a second call asks no network.
install_packages() {
    local missing
    mapfile -t missing < <(each_missing missing_package "$@")
    [ ${#missing[@]} -gt 0 ] || return 0
    ! program apt-get || apt_install "${missing[@]}" || true # what is missing afterwards is named
    mapfile -t missing < <(each_missing missing_package "${missing[@]}")
    [ ${#missing[@]} -gt 0 ] || return 0
    log "Missing:"
    each_missing missing_words "${missing[@]}"
    if ! program apt-get; then
        log "There is no apt-get here to install it: install it by this system's own means, and call again."
    fi
    return 1
}

# want_packages NAME...: likewise, of what is good to have: where there is no apt they stay away.
want_packages() {
    local missing
    mapfile -t missing < <(each_missing missing_package "$@")
    if [ ${#missing[@]} -gt 0 ]; then
        if program apt-get; then install_packages "${missing[@]}"; else log "Without ${missing[*]}: some tests are skipped"; fi
    fi
}

apt_install() {
    local root=() report
    if [ "$(id -u)" != 0 ]; then
        program sudo || { log "Not root, and there is no sudo. As root: apt-get install $*"; return 1; }
        root=(sudo)
    fi
    log "Installing: $*"
    report=$(mktemp)
    if ! { "${root[@]}" apt-get update -qq && "${root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends -o APT::Status-Fd=1 "$@"; } 2>"$report" | apt_progress; then
        cat "$report" >&2
        rm -f "$report"
        return 1
    fi
    rm -f "$report"
}
apt_progress() {
    local kind percent rest
    while IFS=: read -r kind rest percent rest; do
        case $kind in
        dlstatus) progress "Fetching packages" "${percent%%.*}" ;;
        pmstatus) progress "Installing packages" "${percent%%.*}" ;;
        esac
    done
    progress_ends
}

# progress WHAT PERCENT: how far it is. One line that is written over on a terminal, a line at each quarter elsewhere.
PROGRESS=
progress() {
    if [ -t 2 ]; then
        [ "$PROGRESS" = "$1 $2" ] || printf '\r%-50s' "$1: $2 %" >&2
        PROGRESS="$1 $2"
    elif [ "$PROGRESS" != "$1 $(($2 / 25))" ]; then
        log "$1: $2 %"
        PROGRESS="$1 $(($2 / 25))"
    fi
}
progress_ends() {
    [ -z "$PROGRESS" ] || ! [ -t 2 ] || printf '\r%-50s\r' '' >&2
    PROGRESS=
}

# quietly COMMAND...: its output shows only when it fails.
quietly() {
    local report
    report=$(mktemp)
    if ! "$@" >"$report" 2>&1; then
        tail -n 60 "$report" >&2
        rm -f "$report"
        return 1
    fi
    rm -f "$report"
}

# building WHAT COMMAND...: a build by Ninja. Says how far it is, and nothing where there is nothing to do.
building() {
    local what=$1 report
    shift
    report=$(mktemp)
    if ! NINJA_STATUS='[%f/%t] ' "$@" 2>&1 | tee "$report" | build_progress "Building $what"; then
        { grep -aE -A 5 '^FAILED|error:' "$report" | cut -c 1-300 | head -n 60 || tail -n 60 "$report"; } >&2
        rm -f "$report"
        return 1
    fi
    rm -f "$report"
}
build_progress() {
    local line
    while IFS= read -r line; do
        if [[ $line =~ ^\[([0-9]+)/([0-9]+)\] && $line != *Re-running* ]]; then
            progress "$1" $((100 * BASH_REMATCH[1] / BASH_REMATCH[2]))
        fi
    done
    progress_ends
}

# build_preset NAME [TARGET...]. Ninja itself repeats the configuration when a CMakeLists.txt has changed.
build_preset() {
    local preset=$1
    shift
    [ "build/$preset/build.ninja" -nt CMakePresets.json ] || quietly cmake --preset "$preset"
    building "the preset $preset" cmake --build --preset "$preset" ${1:+--target "$@"}
}

# tests_skipped PRESET: what the last run of its tests skipped, by reason: GoogleTest's, and what a script calls SKIP.
tests_skipped() {
    awk '
        function skipped(reason) { if (!(reason in names)) order[++count] = reason; names[reason] = names[reason] " " name }
        / Testing: / { name = $NF }
        /: Skipped$/ { if ((getline reason) > 0) skipped(reason) }
        sub(/^SKIP: /, "") { skipped($0) }
        END { for (i = 1; i <= count; ++i) printf "Skipped, %s:%s\n", order[i], names[order[i]] }
    ' "build/$1/Testing/Temporary/LastTest.log"
}
