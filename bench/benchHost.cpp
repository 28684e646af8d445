// What a request costs in the host, beside the reading of the records that it needs: a pass outside service mode, a
// look at the segment while the watch thread keeps that current. The reading is measured on the rooms linked here,
// which have a store of their own over the same file systems.

#include <benchmark/benchmark.h>

#include <memory>
#include <pthread.h>
#include <string>
#include <unistd.h>

#include "fixture.h"
#include "oxtFsPass.h"
#include "oxtFsStore.h"
#include "oxtHost.h"
#include "oxtPaths.h"
#include "provider.h"

using namespace oxthost;

namespace {

constexpr char kFileSystems[] = "OXT_FileSystem";
const OxtCInfo g_cInfo = bench::outsideServiceMode();

// A provider in the host, over the benchmark's file systems, for as long as it lives.
class Provider {
  public:
    Provider(benchmark::State &state, bool service) {
        bench::useFileSystems(static_cast<int>(state.range(0)));
        (void)unlink(OXT_PATH_SAVE);
        Options options;
        options.library = OXT_BENCH_PROVIDER;
        options.serviceMode = service ? ServiceMode::on() : ServiceMode::off();
        host = std::make_unique<Host>(options);
        if (service && !host->invokeMethod("OXT_FileSystemThread", "StartMonitoringThread", {}).ok())
            state.SkipWithError("the watch thread does not start");
        // The first pass of the thread ends before the first reading is answered in full.
        for (int tries = 0; tries < 1000 && instances() != state.range(0); ++tries)
            usleep(1000);
        if (instances() != state.range(0))
            state.SkipWithError("not all file systems are there");
    }
    ~Provider() {
        host->invokeMethod("OXT_FileSystemThread", "StopMonitoringThread", {});
        host->cleanupInstance(true);
    }
    Provider(const Provider &) = delete;
    Provider &operator=(const Provider &) = delete;

    long instances() { return static_cast<long>(host->enumInstances(kFileSystems).instances.size()); }

    std::unique_ptr<Host> host;
};

void enumerate(benchmark::State &state, bool service) {
    Provider provider(state, service);
    for (auto _ : state)
        if (provider.instances() != state.range(0))
            state.SkipWithError("EnumInstances");
}

void get(benchmark::State &state, bool service) {
    Provider provider(state, service);
    const std::vector<NamedValue> keys = {{"Index", Value::string(std::to_string(state.range(0)))}};
    for (auto _ : state)
        if (!provider.host->getInstance(kFileSystems, keys).ok())
            state.SkipWithError("GetInstance");
}

// A thread in the watch thread's place, which does nothing.
class Sleeper {
  public:
    explicit Sleeper(bool service) {
        g_srvmod.store(service ? 1 : 0);
        pthread_t id = 0;
        if (service && pthread_create(
                           &id, nullptr, [](void *) -> void * { return sleep(3600), nullptr; }, nullptr) == 0)
            gfs_thid.store(id);
    }
    ~Sleeper() {
        oxtThreadCancel(&gfs_thid);
        oxtThreadJoin(&gfs_thid, 5);
        g_srvmod.store(0);
    }
    Sleeper(const Sleeper &) = delete;
    Sleeper &operator=(const Sleeper &) = delete;
};

void read(benchmark::State &state, bool service) {
    bench::useFileSystems(static_cast<int>(state.range(0)));
    if (!bench::buildStore(&g_cInfo) || fsCheckConfigChange(&g_cInfo) != 0)
        state.SkipWithError("no store");
    {
        const Sleeper sleeper(service);
        for (auto _ : state) {
            FsRecords read = {};
            if (fsGetInstance(&g_cInfo, OXT_CID_FS_PROV, &read) != 0 || read.area.datNum != state.range(0))
                state.SkipWithError("reading");
            fsReleaseInstance(&read);
        }
    }
    bench::dropStore(&g_cInfo);
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || !bench::makeFixture(OXT_AGENT_DIR "bench", 1000))
        return 1;
    const struct {
        const char *name;
        void (*function)(benchmark::State &, bool);
    } all[] = {{"enumerate", enumerate}, {"get", get}, {"read", read}};
    for (const auto &row : all)
        for (const bool service : {false, true})
            benchmark::RegisterBenchmark((std::string(row.name) + (service ? "Service" : "Outside")).c_str(),
                                         row.function, service)
                ->Unit(benchmark::kMicrosecond)
                ->Arg(1)
                ->Arg(10)
                ->Arg(100)
                ->Arg(1000);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
