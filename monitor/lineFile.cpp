#include "lineFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <optional>

namespace oxttool {

namespace {

constexpr std::size_t kLongestLine = 65536;
constexpr int kMostFiles = 1000;

std::optional<struct stat> statusOf(const Fd &fd) {
    struct stat status = {};
    return fd && fstat(fd.get(), &status) == 0 ? std::optional(status) : std::nullopt;
}

std::optional<struct stat> statusOf(const std::string &path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

bool isSame(const std::optional<struct stat> &one, const std::optional<struct stat> &other) {
    return one && other && one->st_dev == other->st_dev && one->st_ino == other->st_ino;
}

} // namespace

LineFile::LineFile(std::string path, Start start) : path_(std::move(path)) {
    if (open(path_) && start == End)
        offset_ = lseek(fd_.get(), 0, SEEK_END);
}

bool LineFile::open(const std::string &path) {
    fd_ = Fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    offset_ = 0;
    partial_.clear();
    tooLong_ = false;
    return isOpen();
}

bool LineFile::sharesFileWith(const LineFile &other) const {
    return isSame(statusOf(fd_), statusOf(other.fd_));
}

void LineFile::read(const Each &each) {
    const auto named = statusOf(path_); // it is missing before the first line and while it is renamed
    const bool replaced = named && !isSame(named, statusOf(fd_));
    readOpened(each); // a file that was renamed is read to its end first
    if (!replaced)
        return;
    for (int age = newerFiles(); age > 0; --age)
        if (open(numbered(age)))
            readOpened(each);
    if (open(path_))
        readOpened(each);
}

// How many files were begun and renamed since the one that is open.
int LineFile::newerFiles() const {
    const auto opened = statusOf(fd_);
    for (int age = 1; opened && age <= kMostFiles; ++age) {
        const auto older = statusOf(numbered(age));
        if (!older)
            break;
        if (isSame(older, opened))
            return age - 1;
    }
    return 0;
}

void LineFile::readOpened(const Each &each) {
    if (const auto opened = statusOf(fd_); opened && opened->st_size < offset_) {
        offset_ = 0; // truncated
        partial_.clear();
        tooLong_ = false;
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
            if (!tooLong_)
                each(partial_);
            partial_.clear();
            tooLong_ = false;
        }
    }
}

} // namespace oxttool
