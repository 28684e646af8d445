# Sourced by the scripts at the top of the tree: installs what is missing and builds. Debian 12, through sudo when not
# root. `log` goes to stderr, so that a script's own output stays what it is for.

log() { printf '%s\n' "$*" >&2; }

# install_packages NAME...: only what is missing, so that a second call asks no network.
install_packages() {
    local missing=() name
    for name in "$@"; do
        dpkg-query -W -f='${Status}' "$name" 2>/dev/null | grep -q 'install ok installed' || missing+=("$name")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    log "Installing: ${missing[*]}"
    local root=()
    if [ "$(id -u)" != 0 ]; then
        command -v sudo >/dev/null || { log "Not root, and sudo is missing: install these packages as root: ${missing[*]}"; return 1; }
        root=(sudo)
    fi
    "${root[@]}" apt-get update -qq >&2
    "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

BUILD_PACKAGES=(cmake ninja-build g++ pkg-config libcli11-dev libsmartcols-dev libgtest-dev libgmock-dev nlohmann-json3-dev libtomlplusplus-dev)

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

# build_preset NAME [TARGET...]
build_preset() {
    local preset=$1
    shift
    quietly cmake --preset "$preset"
    quietly cmake --build --preset "$preset" ${1:+--target "$@"}
}
