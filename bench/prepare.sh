# Sourced by the scripts of this directory, at the top of the tree: packages and a build to measure. It is optimised as
# what is installed, with an agent directory of its own.
. cmake/prepare.sh
BENCH=$PWD/build/bench

# build_bench TARGET...
build_bench() {
    local report
    install_packages "${BUILD_PACKAGES[@]}" libbenchmark-dev
    report=$(mktemp)
    if ! { cmake -S . -B "$BENCH" -G Ninja -DCMAKE_BUILD_TYPE=Release -DOXT_BUILD_TESTS=OFF -DOXT_BUILD_BENCH=ON \
        -DOXT_AGENT_DIR="$BENCH/agent-root/" && cmake --build "$BENCH" --target "$@"; } >"$report" 2>&1; then
        tail -n 60 "$report" >&2
        return 1
    fi
    rm -f "$report"
}
