#include "asking.h"

#include <unistd.h>

#include <cstdio>

#include "instances.h"

namespace oxttool {

std::vector<FileSystem> fileSystemsOf(Session &session) {
    const std::vector<oxthost::Instance> instances = session.enumerate(kFileSystemClass);
    std::vector<FileSystem> all;
    all.reserve(instances.size());
    for (const oxthost::Instance &instance : instances)
        all.push_back(fileSystemOf(instance));
    return all;
}

void saySource(const Session &session, const Options &options) {
    const std::string source = session.source();
    if (source.empty() || !options.isForPeople())
        return;
    std::fflush(stdout);
    const bool grey = isatty(STDERR_FILENO) != 0;
    std::fprintf(stderr, "%s%s%s\n", grey ? "\033[2m" : "", source.c_str(), grey ? "\033[0m" : "");
}

} // namespace oxttool
