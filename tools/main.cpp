#include <clocale>
#include <cstdio>
#include <exception>

#include "options.h"

int main(int argc, char **argv) {
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
