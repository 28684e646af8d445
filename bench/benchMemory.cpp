// What memory a file system costs: the heap between two passes, the pages that one pass touches beyond it, and what a
// pass leaves behind. And the allocations that the provider itself makes for an enumeration.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <link.h>
#include <malloc.h>
#include <string>
#include <unistd.h>

#include "fixture.h"
#include "oxtFsPass.h"
#include "oxtFsStore.h"
#include "oxtHost.h"
#include "oxtPaths.h"
#include "provider.h"

extern "C" void *__libc_malloc(size_t size);

namespace {

const OxtCInfo g_cInfo = bench::outsideServiceMode();
uintptr_t g_begin = 0, g_end = 0; // of the provider's library in memory
long g_allocations = 0;           // made from there

double heap() {
    return static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd);
}

// A line of /proc/self/status, in bytes.
double status(const std::string &name) {
    std::ifstream file("/proc/self/status");
    for (std::string word; file >> word;)
        if (word == name + ":" && file >> word)
            return std::stod(word) * 1024;
    return 0;
}

void passMemory(benchmark::State &state) {
    const auto count = static_cast<double>(state.range(0));
    bench::useFileSystems(static_cast<int>(state.range(0)));
    const double without = heap();
    if (!bench::buildStore(&g_cInfo) || fsCheckConfigChange(&g_cInfo) != 0)
        state.SkipWithError("no store");
    const double resting = heap();
    malloc_trim(0);
    const double pages = status("VmRSS");
    std::ofstream("/proc/self/clear_refs") << 5; // the peak starts anew
    for (auto _ : state)
        if (fsCheckConfigChange(&g_cInfo) != 0)
            state.SkipWithError("pass");
    state.counters["resting"] = (resting - without) / count / sizeof(FsProv);
    state.counters["peak"] = (status("VmHWM") - pages) / count / sizeof(FsProv);
    state.counters["growth"] = heap() - resting;
    bench::dropStore(&g_cInfo);
}

int findProvider(dl_phdr_info *info, size_t, void *) {
    if (std::strstr(info->dlpi_name, "libOXTFileSystemProvider") == nullptr)
        return 0;
    g_begin = info->dlpi_addr;
    for (int i = 0; i < info->dlpi_phnum; ++i)
        g_end = std::max<uintptr_t>(g_end, g_begin + info->dlpi_phdr[i].p_vaddr + info->dlpi_phdr[i].p_memsz);
    return 1;
}

void allocations(benchmark::State &state) {
    bench::useFileSystems(static_cast<int>(state.range(0)));
    oxthost::Options options;
    options.library = OXT_BENCH_PROVIDER;
    oxthost::Host host(options);
    (void)host.enumInstances("OXT_FileSystem");
    dl_iterate_phdr(findProvider, nullptr);
    g_allocations = 0;
    size_t instances = 0;
    for (auto _ : state)
        instances += host.enumInstances("OXT_FileSystem").instances.size();
    state.counters["perInstance"] = static_cast<double>(g_allocations) / static_cast<double>(instances);
    host.cleanupInstance(true);
    (void)unlink(OXT_PATH_SAVE);
}

} // namespace

extern "C" void *malloc(size_t size) {
    const auto caller = reinterpret_cast<uintptr_t>(__builtin_return_address(0));
    g_allocations += caller >= g_begin && caller < g_end ? 1 : 0;
    return __libc_malloc(size);
}

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || !bench::makeFixture(OXT_AGENT_DIR "bench", 1000))
        return 1;
    for (const int count : {10, 100, 1000}) {
        benchmark::RegisterBenchmark("memory", passMemory)->Arg(count)->Iterations(5);
        benchmark::RegisterBenchmark("allocations", allocations)->Arg(count)->Iterations(2);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
