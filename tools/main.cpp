#include <clocale>
#include <cstdio>
#include <exception>
#include <malloc.h>

#include "options.h"

namespace {

// The provider takes and frees megabytes several times in a command over many file systems. The allocator would give
// them back to the kernel each time and take them anew, page by page: over 1,000 a third of the command's time.
void keepFreedMemory() {
    constexpr int bytes = 32 * 1024 * 1024; // the most that mallopt(3) promises to take
    (void)mallopt(M_MMAP_THRESHOLD, bytes);
    (void)mallopt(M_TRIM_THRESHOLD, bytes);
}

} // namespace

int main(int argc, char **argv) {
    keepFreedMemory();
    std::setlocale(LC_CTYPE, "");
    auto result = oxttool::Exit::Ok;
    try {
        if (auto options = oxttool::parseOptions(argc, argv)) {
            oxttool::adaptToOutput(options->look, stdout);
            result = options->command(*options);
        }
    } catch (const oxttool::Failure &failure) {
        std::fprintf(stderr, "oxtfsctl: %s\n", failure.what());
        result = failure.exitCode;
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "oxtfsctl: %s\n", problem.what());
        result = oxttool::Exit::Environment;
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        std::perror("oxtfsctl: the output cannot be written");
        result = oxttool::Exit::Environment;
    }
    return static_cast<int>(result);
}
