// What a trace line costs its caller, beside a bare write(2) of an equally long line: both append to a file in the
// agent's log directory. Run it in a build whose agent directory is its own; it sets svtrace.conf and removes it again.

#include "svtrace.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

constexpr char kLog[] = "benchTrace.log";
constexpr char kFunction[] = "OXTSendIndication";
const std::string kDirectory = OXT_AGENT_DIR "log/";

decltype(&SetFilePath) g_setFilePath = nullptr;
decltype(&TraceLog) g_traceLog = nullptr;

std::string g_line; // as the library wrote it
int g_file = -1;

// A trace point as the provider has it: the log selected, then the line written.
void tracePoint(int level, int value) {
    g_setFilePath(kLog);
    g_traceLog(level, "", kFunction, 123, "-> Info.sourceName=[%s] ret=[%d]", "OXTFSService", value);
}

bool setUp() {
    void *const library = dlopen(OXT_AGENT_DIR "lib/libsvtrace.so", RTLD_LAZY);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return false;
    }
    g_setFilePath = reinterpret_cast<decltype(g_setFilePath)>(dlsym(library, "SetFilePath"));
    g_traceLog = reinterpret_cast<decltype(g_traceLog)>(dlsym(library, "TraceLog"));
    (void)unlink((kDirectory + kLog).c_str());
    tracePoint(3, 100000);
    std::getline(std::ifstream(kDirectory + kLog), g_line);
    g_line += '\n';
    g_file = open((kDirectory + "benchTrace.bare").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    return g_line.size() > 1 && g_file >= 0;
}

void tearDown() {
    for (const char *name : {"benchTrace.log", "benchTrace.log.1", "benchTrace.log.2", "benchTrace.log.3",
                             "benchTrace.bare", "svtrace.conf"}) {
        (void)unlink((kDirectory + name).c_str());
    }
}

void setNormal(bool on) {
    std::ofstream(kDirectory + "svtrace.conf") << "normal = " << (on ? "on" : "off") << '\n';
    std::this_thread::sleep_for(std::chrono::milliseconds(2100)); // until the library has noticed
}

void bareWrite(benchmark::State &state) {
    if (state.thread_index() == 0 && ftruncate(g_file, 0) != 0) {
        state.SkipWithError("ftruncate");
    }
    for (auto _ : state) {
        if (write(g_file, g_line.data(), g_line.size()) < 0) {
            state.SkipWithError("write");
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void traceFailure(benchmark::State &state) {
    for (auto _ : state) {
        tracePoint(3, 100000);
    }
    state.SetItemsProcessed(state.iterations());
}

void traceSwitchedOff(benchmark::State &state) {
    if (state.thread_index() == 0) {
        setNormal(false);
    }
    for (auto _ : state) {
        tracePoint(0, 100000);
    }
    if (state.thread_index() == 0) {
        setNormal(true);
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(bareWrite)->Threads(1)->Threads(8)->UseRealTime();
BENCHMARK(traceFailure)->Threads(1)->Threads(8)->UseRealTime();
BENCHMARK(traceSwitchedOff)->Threads(1)->Threads(8)->UseRealTime()->Iterations(2000000);

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || !setUp()) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    tearDown();
    return 0;
}
