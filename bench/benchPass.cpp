// What a pass costs: beside its floor, with and without somebody who listens, and its parts. The file systems are those
// of a fixture, or with the option --real as its first the machine's own.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>

#include "fixture.h"
#include "floor.h"
#include "oxtFile.h"
#include "oxtFsPass.h"
#include "oxtFsSave.h"
#include "oxtFsStore.h"
#include "oxtPaths.h"
#include "oxtTrace.h"
#include "provider.h"

namespace {

const OxtCInfo g_cInfo = bench::outsideServiceMode();
bool g_real = false;

// A store over the benchmark's file systems for as long as it lives.
class Store {
  public:
    explicit Store(benchmark::State &state) {
        bench::useFileSystems(g_real ? 0 : static_cast<int>(state.range(0)));
        if (!bench::buildStore(&g_cInfo) || fsCheckConfigChange(&g_cInfo) != 0)
            state.SkipWithError("no store: are there file systems that can be monitored?");
        else if (fsCurrent()->areas[OXT_CID_FS_PROV].datNum < state.range(0))
            state.SkipWithError("fewer file systems than asked for");
    }
    ~Store() { bench::dropStore(&g_cInfo); }
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;
};

void check(benchmark::State &state, bool good, const char *what) {
    if (!good)
        state.SkipWithError(what);
}

void pass(benchmark::State &state) {
    const Store store(state);
    for (auto _ : state)
        check(state, fsCheckConfigChange(&g_cInfo) == 0, "pass");
}

template <typename Step> void measureFloor(benchmark::State &state, Step step) {
    const Store store(state);
    bench::Floor floor(fsCurrent()->areas, shmFs);
    for (auto _ : state)
        check(state, step(floor), "floor");
}
void floorBySteps(benchmark::State &state) {
    measureFloor(state, [](bench::Floor &floor) { return floor.run(bench::kByTheSteps, true); });
}
void floorOnce(benchmark::State &state) {
    measureFloor(state, [](bench::Floor &floor) { return floor.run(bench::kOnce, false); });
}
void partFiles(benchmark::State &state) {
    measureFloor(state, [](bench::Floor &floor) { return floor.readFiles(); });
}
void partQuestions(benchmark::State &state) {
    measureFloor(state, [](bench::Floor &floor) { return floor.ask(bench::kOnce); });
}
void partSegments(benchmark::State &state) {
    measureFloor(state, [](bench::Floor &floor) { return floor.copySegments(false); });
}
void partSave(benchmark::State &state) {
    measureFloor(state, [](bench::Floor &floor) { return floor.save(); });
}

// The agent's libraries, bound for as long as it lives. With normal lines, or as the settings file switches them off.
class Listener {
  public:
    explicit Listener(bool normal) {
        setNormal(normal);
        good = InitProcess("benchPass.log") == 0;
    }
    ~Listener() {
        FinishProcess();
        for (const char *name : {"benchPass.log", "benchPass.log.1", "svtrace.conf"})
            (void)unlink((std::string(OXT_AGENT_DIR "log/") + name).c_str());
    }
    bool good = false;

  private:
    static void setNormal(bool on) {
        std::ofstream(OXT_AGENT_DIR "log/svtrace.conf") << "normal = " << (on ? "on" : "off") << "\nfiles = 2\n";
        std::this_thread::sleep_for(std::chrono::milliseconds(2100)); // until the library has noticed
    }
};

void tracedPass(benchmark::State &state, bool normal) {
    const Store store(state);
    const Listener listener(normal);
    check(state, listener.good, "InitProcess");
    for (auto _ : state)
        check(state, fsCheckConfigChange(&g_cInfo) == 0, "pass");
}
void passTraced(benchmark::State &state) {
    tracedPass(state, true);
}
void passNormalOff(benchmark::State &state) {
    tracedPass(state, false);
}

// Lines of an uneventful pass: counted where they are handed out.
long g_lines = 0;
size_t g_bytes = 0;
void selectLog(const char *) {}
__attribute__((format(printf, 5, 6))) void countLine(int, const char *, const char *function, int, const char *format,
                                                     ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    ++g_lines;
    static const size_t process = std::to_string(getpid()).size();
    constexpr size_t kAround = sizeof "2026-01-01T00:00:00.000Z   0 :123  " - 1;
    g_bytes += kAround + 2 * process + std::strlen(function) + std::min(static_cast<size_t>(length), sizeof text);
}

// As many bare write(2) calls of lines of that length as an uneventful pass traces.
void bareWrites(benchmark::State &state) {
    {
        const Store store(state);
        g_lines = 0;
        g_bytes = 0;
        g_Func[OXT_FUNC_SETFILEPATH].store(reinterpret_cast<const void *>(selectLog));
        g_Func[OXT_FUNC_TRACELOG].store(reinterpret_cast<const void *>(countLine));
        check(state, fsCheckConfigChange(&g_cInfo) == 0, "pass");
        g_Func[OXT_FUNC_SETFILEPATH].store(nullptr);
        g_Func[OXT_FUNC_TRACELOG].store(nullptr);
    }
    const std::string line(g_lines > 0 ? g_bytes / static_cast<size_t>(g_lines) : 1, 'x');
    const char *const path = OXT_AGENT_DIR "log/bare.log";
    const int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    size_t written = 0;
    for (auto _ : state) {
        for (long i = 0; i < g_lines; ++i)
            check(state, write(fd, line.data(), line.size()) > 0, "write");
        written += line.size() * static_cast<size_t>(g_lines);
        if (written > 5 * 1024 * 1024) { // as a log that is rotated
            check(state, ftruncate(fd, 0) == 0, "ftruncate");
            written = 0;
        }
    }
    close(fd);
    (void)unlink(path);
    state.counters["lines"] = static_cast<double>(g_lines);
    state.counters["bytes"] = static_cast<double>(line.size());
}

void save(benchmark::State &state) {
    const Store store(state);
    for (auto _ : state)
        check(state, fsSaveStore("save", fsCurrent()->version) == FS_SAVED, "save");
}

void load(benchmark::State &state) {
    const Store store(state);
    DatInfo areas[OXT_CID_FS_COUNT] = {};
    fsInitDatInfo(areas);
    areas[OXT_CID_FS_CONF].datNum = areas[OXT_CID_FS_TNUM].datNum = 0;
    for (auto _ : state) {
        const OxtFile file = oxtOpenFile(OXT_PATH_SAVE, "r+");
        check(state, file != nullptr && fsGetBinFile(file.get(), areas) == 0, "load");
    }
    for (const DatInfo &area : areas)
        free(area.datAdr);
}

// All classes from their segments: what somebody else's change to them costs.
void peek(benchmark::State &state) {
    const Store store(state);
    FsSnapshot *const copy = fsCopySnapshot(fsCurrent(), true);
    for (auto _ : state)
        for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid)
            check(state, setShmToInst(&g_cInfo, &shmFs[cid], &copy->areas[cid]) == 0, "peek");
    fsDrop(copy);
}

// One file system more, and the segment that it takes.
void resize(benchmark::State &state) {
    const Store store(state);
    DatInfo area = {sizeof(FsProv), fsCurrent()->areas[OXT_CID_FS_PROV].datNum, nullptr};
    int step = 1;
    for (auto _ : state) {
        area.datNum += step;
        step = -step;
        check(state, reallocDatArea(&g_cInfo, OXT_PATH_SHMKEY, OXT_CID_FS_PROV, &area, &shmFs[OXT_CID_FS_PROV]) == 0,
              "resize");
    }
    free(area.datAdr);
}

std::string takeOption(int *argc, char **argv, const std::string &name) {
    for (int i = 1; i < *argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind(name + "=", 0) != 0)
            continue;
        std::copy(argv + i + 1, argv + *argc, argv + i);
        --*argc;
        return argument.substr(name.size() + 1);
    }
    return "";
}

} // namespace

int main(int argc, char **argv) {
    const std::string real = takeOption(&argc, argv, "--real");
    g_real = !real.empty();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    if (!g_real && !bench::makeFixture(OXT_AGENT_DIR "bench", 1000))
        return 1;
    const struct {
        const char *name;
        void (*function)(benchmark::State &);
    } all[] = {{"pass", pass},
               {"floorBySteps", floorBySteps},
               {"floorOnce", floorOnce},
               {"partFiles", partFiles},
               {"partQuestions", partQuestions},
               {"partSegments", partSegments},
               {"partSave", partSave},
               {"passTraced", passTraced},
               {"passNormalOff", passNormalOff},
               {"bareWrites", bareWrites},
               {"save", save},
               {"load", load},
               {"peek", peek},
               {"resize", resize}};
    for (const auto &row : all) {
        benchmark::internal::Benchmark *const made = benchmark::RegisterBenchmark(row.name, row.function);
        made->Unit(benchmark::kMicrosecond);
        if (g_real)
            made->Arg(std::stoi(real));
        else
            made->Arg(1)->Arg(10)->Arg(100)->Arg(1000);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
