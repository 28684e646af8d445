// A pass and an enumeration over a fixed machine, for a count of the instructions between the entry and the exit of the
// function that has the figure's name. Nobody listens, and nothing but this code and the C library's is counted.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

#include "fixture.h"
#include "oxtFsPass.h"
#include "oxtHost.h"
#include "oxtPaths.h"
#include "provider.h"

namespace {

constexpr int kFileSystems = 100;

[[noreturn]] void fail(const char *what) {
    std::fprintf(stderr, "instructions: %s failed\n", what);
    std::exit(1);
}

} // namespace

extern "C" __attribute__((noinline)) int countPass(const OxtCInfo *cInfo) {
    return fsCheckConfigChange(cInfo) == 0 ? 1 : 0;
}

extern "C" __attribute__((noinline)) int countEnumeration(oxthost::Host *host) {
    return host->enumInstances("OXT_FileSystem").instances.size() == kFileSystems ? 1 : 0;
}

int main() {
    if (!bench::makeFixture(OXT_AGENT_DIR "bench", kFileSystems))
        return 1;
    bench::useFileSystems(kFileSystems);

    const OxtCInfo cInfo = bench::outsideServiceMode();
    if (!bench::buildStore(&cInfo) || fsCheckConfigChange(&cInfo) != 0 || countPass(&cInfo) != 1)
        fail("a pass");
    bench::dropStore(&cInfo);

    oxthost::Options options;
    options.library = OXT_BENCH_PROVIDER;
    oxthost::Host host(options);
    if (!host.enumInstances("OXT_FileSystem").ok() || countEnumeration(&host) != 1)
        fail("an enumeration");
    host.cleanupInstance(true);
    (void)unlink(OXT_PATH_SAVE);
    return 0;
}
