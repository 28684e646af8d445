#include "log.h"

#include <poll.h>
#include <unistd.h>

#include <cstdio>
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

// The last `count` lines that are wanted, from as many of the older files as it takes.
std::deque<std::string> lastLines(LineFile &newest, std::size_t count,
                                  const std::function<bool(const std::string &)> &wanted) {
    std::deque<std::string> lines;
    const auto takeFrom = [&](LineFile &file) {
        std::deque<std::string> taken;
        const std::size_t room = count - lines.size();
        file.readOpened([&](const std::string &line) {
            if (!wanted(line))
                return;
            taken.push_back(line);
            if (taken.size() > room)
                taken.pop_front();
        });
        lines.insert(lines.begin(), taken.begin(), taken.end());
    };
    takeFrom(newest);
    // A rotation meanwhile moves files that were read to the next number.
    std::vector<std::unique_ptr<LineFile>> read;
    for (int age = 1; lines.size() < count; ++age) {
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
    return lines;
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
    const bool missing = access(path.c_str(), F_OK) != 0;
    if (!file.isOpen() && !missing)
        throw Failure(Exit::Environment, "the trace log " + path + " cannot be read.\nRun oxtfsctl as root.");
    if (missing && !options.follow)
        throw Failure(Exit::Environment, "there is no trace log " + path +
                                             ".\nA provider writes it where the agent's trace library is installed; "
                                             "'oxtfsctl log --follow' waits for it.");
    const auto wanted = [&options](const std::string &line) {
        return !options.failuresOnly || parseTraceLine(line).isFailure();
    };
    const auto show = [&options](const std::string &line) {
        std::printf("%s\n", shownTraceLine(line, options.look).c_str());
    };
    for (const std::string &line : lastLines(file, count, wanted))
        show(line);
    while (options.follow && std::fflush(stdout) == 0 && pauseUntilNext())
        file.read([&](const std::string &line) {
            if (wanted(line))
                show(line);
        });
    return Exit::Ok;
}

} // namespace oxttool
