#include "log.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "agentDir.h"
#include "lineFile.h"
#include "shownTraceLine.h"
#include "traceLine.h"
#include "traceSetting.h"
#include "values.h"

namespace oxttool {

namespace {

constexpr unsigned kLinesShown = 10;
constexpr unsigned kMostLines = 1000000;
constexpr int kPauseMs = 250;

struct LastLines {
    std::deque<std::string> lines;
    bool all = true; // else the search has ended before the logs did
};

// The last `count` lines that are wanted, from as many of the older files as it takes. However much there is, no more
// than LineFile::kMostBytes are looked through.
LastLines lastLines(LineFile &newest, std::size_t count, const std::function<bool(const std::string &)> &wanted) {
    LastLines last;
    off_t left = LineFile::kMostBytes;
    const auto takeFrom = [&](LineFile &file) {
        left -= file.readBackwards(left, [&](const std::string &line) {
            if (last.lines.size() < count && wanted(line))
                last.lines.push_front(line);
            return last.lines.size() < count;
        });
    };
    takeFrom(newest);
    // A rotation meanwhile moves files that were read to the next number.
    std::vector<std::unique_ptr<LineFile>> read;
    for (int age = 1; last.lines.size() < count && left > 0 && age <= LineFile::kMostFiles; ++age) {
        auto older = std::make_unique<LineFile>(newest.numbered(age), LineFile::Beginning);
        if (!older->isOpen())
            break;
        bool known = older->sharesFileWith(newest);
        for (const auto &file : read)
            known = known || older->sharesFileWith(*file);
        if (!known)
            takeFrom(*older);
        read.push_back(std::move(older));
    }
    last.all = left > 0 || last.lines.size() == count;
    return last;
}

// Throws an environment failure when there is something that cannot be read, or nothing and nobody waits for it.
void checkLog(const std::string &path, const LineFile &file, bool wait) {
    struct stat state = {};
    const bool known = lstat(path.c_str(), &state) == 0;
    if (!known && (errno == ENOENT || errno == ENOTDIR) && !wait)
        throw Failure(Exit::Environment, "there is no trace log " + path +
                                             ".\nA provider writes it where the agent's trace library is installed; "
                                             "'oxtfsctl log --follow' waits for it.");
    if (known && !S_ISREG(state.st_mode))
        throw Failure(Exit::Environment, path +
                                             " is no regular file, so it is not read.\nSomebody who can write in the "
                                             "directory has put it in the trace log's place.");
    if ((known && !file.isOpen()) || (!known && errno == EACCES))
        throw Failure(Exit::Environment, "the trace log " + path + " cannot be read: " +
                                             std::strerror(access(path.c_str(), R_OK) != 0 ? errno : EAGAIN) +
                                             ".\nRun oxtfsctl as root.");
}

// Waits a little; false when nobody reads the output any more.
bool pauseUntilNext() {
    pollfd output = {STDOUT_FILENO, 0, 0};
    return poll(&output, 1, kPauseMs) <= 0 || (output.revents & (POLLERR | POLLHUP)) == 0;
}

} // namespace

Exit logCommand(const Options &options) {
    if (!options.trace.empty()) {
        writeTraceSetting(agentDirectory(), options.trace);
        return Exit::Ok;
    }
    const unsigned count =
        options.lines.empty() ? kLinesShown : parseNumber(options.lines, 0, kMostLines, "a number of lines");
    const std::string path = agentDirectory() + "log/" + kTraceFileName;
    LineFile file(path, LineFile::Beginning);
    checkLog(path, file, options.follow);
    const auto wanted = [&options](const std::string &line) {
        return !options.failuresOnly || parseTraceLine(line).isFailure();
    };
    const auto show = [&options](const std::string &line) {
        std::printf("%s\n", shownTraceLine(line, options.look).c_str());
    };
    const LastLines last = lastLines(file, count, wanted);
    for (const std::string &line : last.lines)
        show(line);
    if (!last.all)
        std::fprintf(stderr, "oxtfsctl: only the last %lld MiB of the log were looked through.\n",
                     static_cast<long long>(LineFile::kMostBytes / 1048576));
    while (options.follow && std::fflush(stdout) == 0 && pauseUntilNext())
        file.read([&](const std::string &line) {
            if (wanted(line))
                show(line);
        });
    return Exit::Ok;
}

} // namespace oxttool
