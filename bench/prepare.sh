# Sourced by the scripts of this directory, at the top of the tree: packages and a build to measure. It is optimised as
# what is installed, with an agent directory of its own.
. cmake/prepare.sh
BENCH=$PWD/build/bench

# build_bench TARGET...
build_bench() {
    install_packages "${BUILD_PACKAGES[@]}" libbenchmark-dev
    quietly cmake -S . -B "$BENCH" -G Ninja -DCMAKE_BUILD_TYPE=Release -DOXT_BUILD_TESTS=OFF -DOXT_BUILD_BENCH=ON \
        -DOXT_AGENT_DIR="$BENCH/agent-root/"
    building "the benchmarks" cmake --build "$BENCH" --target "$@"
}
