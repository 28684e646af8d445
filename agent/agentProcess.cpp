#include "agentProcess.h"

#include <atomic>
#include <new>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace agent {

namespace {

using Number = std::atomic<int>;

std::atomic<Number *> g_page{nullptr};  // mapped once and kept: threads may read it until the process ends
std::atomic<bool> g_pageRefused{false}; // the kernel cannot wipe a page on fork: ask getpid each time

struct ThreadNumber {
    int process; // whose thread: a forked child's only thread has its parent's record but not its number
    int thread;
};

// Initial-exec: the general model allocates at a thread's first use and ends the process when memory is out.
__attribute__((tls_model("initial-exec"))) thread_local ThreadNumber t_number = {0, 0};

Number *mapPage() {
    const auto size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void *const page = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED)
        return nullptr;
    Number *expected = nullptr;
    Number *const fresh = new (page) Number(0);
    if (madvise(page, size, MADV_WIPEONFORK) == 0 && g_page.compare_exchange_strong(expected, fresh))
        return fresh;
    (void)munmap(page, size);
    return expected;
}

int learnProcess() {
    const int process = getpid();
    Number *page = g_page.load(std::memory_order_acquire);
    if (page == nullptr && !g_pageRefused.load(std::memory_order_relaxed)) {
        page = mapPage();
        g_pageRefused.store(page == nullptr, std::memory_order_relaxed);
    }
    if (page != nullptr)
        page->store(process, std::memory_order_relaxed);
    return process;
}

} // namespace

int currentProcess() {
    const Number *const page = g_page.load(std::memory_order_acquire);
    const int process = page != nullptr ? page->load(std::memory_order_relaxed) : 0;
    return process != 0 ? process : learnProcess();
}

int currentThread(int process) {
    if (t_number.process != process)
        t_number = {process, static_cast<int>(syscall(SYS_gettid))};
    return t_number.thread;
}

} // namespace agent
