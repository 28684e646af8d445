#include "alertFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include <nlohmann/json.hpp>

namespace oxttool {

namespace {

using nlohmann::json;

constexpr std::size_t kLongestLine = 65536;

struct Event {
    std::uint64_t id;
    std::int64_t status;
};
constexpr Event kEvents[] = {{0x400403EA, 1}, {0x800403E9, 2}, {0xC00403E8, 3}};

std::string member(const json &object, const char *name) {
    const auto found = object.find(name);
    if (found == object.end())
        return "";
    if (found->is_string())
        return found->get<std::string>();
    return found->is_number_integer() ? found->dump() : "";
}

std::optional<std::int64_t> statusOf(const std::string &eventId) {
    char *end = nullptr;
    const std::uint64_t id = std::strtoull(eventId.c_str(), &end, 0); // decimal, or hexadecimal after 0x
    for (const Event &event : kEvents)
        if (*end == '\0' && id == event.id)
            return event.status;
    return std::nullopt;
}

} // namespace

std::optional<Alert> parseAlert(const std::string &line) {
    const json object = json::parse(line, nullptr, false);
    if (!object.is_object())
        return std::nullopt;
    Alert alert;
    alert.time = member(object, "time");
    alert.severity = member(object, "severity");
    alert.event = member(object, "event");
    alert.device = member(object, "device");
    alert.mountPoint = member(object, "mountPoint");
    alert.newStatus = statusOf(member(object, "eventId"));
    alert.freeMiB = member(object, "availableMiB");
    alert.sizeMiB = member(object, "sizeMiB");
    alert.thresholdMiB = member(object, "thresholdMiB");
    return alert;
}

AlertFile::AlertFile(std::string path) : path_(std::move(path)) {
    if (reopen())
        offset_ = lseek(fd_.get(), 0, SEEK_END);
}

bool AlertFile::reopen() {
    fd_ = Fd(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    offset_ = 0;
    partial_.clear();
    tooLong_ = false;
    return static_cast<bool>(fd_);
}

std::vector<Alert> AlertFile::read() {
    std::vector<Alert> alerts;
    struct stat named = {}, opened = {};
    const bool there = stat(path_.c_str(), &named) == 0; // it is missing before the first alert and while it is renamed
    const bool same =
        fd_ && fstat(fd_.get(), &opened) == 0 && named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
    readOn(alerts); // a file that was renamed is read to its end first
    if (there && !same && reopen())
        readOn(alerts);
    return alerts;
}

void AlertFile::readOn(std::vector<Alert> &alerts) {
    struct stat opened = {};
    if (fd_ && fstat(fd_.get(), &opened) == 0 && opened.st_size < offset_) {
        offset_ = 0; // truncated
        partial_.clear();
    }
    char buffer[8192];
    for (ssize_t got; fd_ && (got = pread(fd_.get(), buffer, sizeof buffer, offset_)) > 0; offset_ += got) {
        for (ssize_t i = 0; i < got; ++i) {
            if (buffer[i] != '\n') {
                if (partial_.size() < kLongestLine)
                    partial_ += buffer[i];
                else
                    tooLong_ = true;
                continue;
            }
            if (auto alert = tooLong_ ? std::nullopt : parseAlert(partial_))
                alerts.push_back(std::move(*alert));
            partial_.clear();
            tooLong_ = false;
        }
    }
}

} // namespace oxttool
