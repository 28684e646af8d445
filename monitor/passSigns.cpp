#include "passSigns.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>

#include "agentDir.h"
#include "failure.h"
#include "records.h"
#include "shownText.h"
#include "traceLine.h"
#include "values.h"

namespace oxttool {

namespace {

constexpr std::uint32_t kSaveEvents = IN_MODIFY | IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

// The provider's lines behind a pass that failed, and behind the last save.
struct FailureLine {
    const char *function, *text;
};
constexpr FailureLine kFailureLines[] = {
    {"fsWatchThread", "fsCheckConfigChange() Failure!!"},
    {"fsExitThread", "fsSetInstance() Failure!!"},
};

// Of a trace line's time, which has the right form; now where it names no such day.
std::chrono::system_clock::time_point momentOf(const std::string &time) {
    using std::chrono::system_clock;
    std::tm parts = {};
    const char *rest = strptime(time.c_str(), "%Y-%m-%dT%H:%M:%S.", &parts);
    return rest == nullptr
               ? system_clock::now()
               : system_clock::from_time_t(timegm(&parts)) + std::chrono::milliseconds(std::strtol(rest, nullptr, 10));
}

bool endsInFailure(const TraceLine &line) {
    return std::any_of(std::begin(kFailureLines), std::end(kFailureLines),
                       [&](const FailureLine &end) { return line.function == end.function && line.text == end.text; });
}

} // namespace

SaveSigns::SaveSigns(const std::string &root)
    : directory_(root + "data"), events_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    find();
    if (isLost())
        throw Failure(Exit::Environment, "cannot follow " + directory_ + ": " + std::strerror(errno));
}

void SaveSigns::find() {
    watch_ = inotify_add_watch(events_.get(), directory_.c_str(), kSaveEvents);
    changed_ = false;
}

unsigned SaveSigns::writes() {
    unsigned count = 0;
    alignas(inotify_event) char buffer[4096];
    for (ssize_t got; (got = read(events_.get(), buffer, sizeof buffer)) > 0;) {
        for (const char *at = buffer; at < buffer + got;) {
            inotify_event event;
            std::memcpy(&event, at, sizeof event);
            const char *name = event.len != 0 ? at + sizeof event : "";
            at += sizeof event + event.len;
            if (event.wd != watch_)
                continue; // of a directory that was given up
            if (event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) {
                inotify_rm_watch(events_.get(), watch_);
                watch_ = -1;
            } else if (std::strcmp(name, kSaveFileName) == 0) {
                count += changed_ && (event.mask & IN_CLOSE_WRITE) ? 1 : 0; // closed unchanged, it was only loaded
                changed_ = (event.mask & IN_MODIFY) != 0;
            }
        }
    }
    if (isLost())
        find();
    return count;
}

bool isSaveWhole(const std::string &root) {
    const Fd file(open((root + "data/" + kSaveFileName).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    char head[kVersionBytes + kConfigBytes + kTotalBytes];
    struct stat state = {};
    if (!file || fstat(file.get(), &state) != 0 ||
        read(file.get(), head, sizeof head) != static_cast<ssize_t>(sizeof head))
        return false;
    const unsigned count = totalOf(ByteView(head, sizeof head).substr(kVersionBytes + kConfigBytes));
    return static_cast<std::uint64_t>(state.st_size) >= sizeof head + std::uint64_t{count} * kFileSystemBytes;
}

TraceSigns::TraceSigns(const std::string &root)
    : lines_(root + "log/" + kTraceFileName, LineFile::End, LineFile::Ours) {}

std::optional<TracedFailure> TraceSigns::failure(std::time_t since) {
    const std::string earliest = utcTime(since).substr(0, 19); // the lines' times have milliseconds behind it
    std::map<int, std::string> first;                          // failure of each thread
    std::optional<TracedFailure> failure;
    lines_.read([&](const std::string &text) {
        const TraceLine line = parseTraceLine(text);
        if (!line.parsed || line.process != getpid() || !line.isFailure() || line.time.compare(0, 19, earliest) < 0)
            return;
        if (endsInFailure(line)) {
            const auto cause = first.find(line.thread);
            failure = {cause != first.end() ? cause->second : line.text, momentOf(line.time)};
            first.clear();
        } else {
            first.emplace(line.thread, explainedFailure(line.text));
        }
    });
    return failure;
}

std::string directoryProblem(const std::string &root) {
    try {
        checkAgentDirectory(root);
    } catch (const Failure &failure) {
        const std::string what = failure.what();
        return what.substr(0, what.find('\n'));
    }
    return "";
}

std::string withDirectoryProblem(const std::string &reason, const std::string &root) {
    const std::string problem = directoryProblem(root);
    if (reason.empty())
        return problem.empty() ? "the save file was not written as a whole" : problem;
    return problem.empty() || problem == reason ? reason : reason + "; " + problem;
}

std::string explainedFailure(const std::string &text) {
    std::string plain = text.rfind("_OUT_ ", 0) == 0 ? text.substr(6) : text;
    for (const char *word : {"err=[", "errno=["}) {
        const std::size_t at = plain.find(word);
        const long number =
            at == std::string::npos ? 0 : std::strtol(plain.c_str() + at + std::strlen(word), nullptr, 10);
        if (number > 0 && number < 4096) // Linux has no greater one
            return printableLine(plain) + " (" + std::strerror(static_cast<int>(number)) + ")";
    }
    return printableLine(plain);
}

} // namespace oxttool
