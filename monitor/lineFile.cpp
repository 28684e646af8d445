#include "lineFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <optional>

namespace oxttool {

namespace {

constexpr std::size_t kLongestLine = 65536;
constexpr off_t kBlock = 65536;

std::optional<struct stat> statusOf(const Fd &fd) {
    struct stat status = {};
    return fd && fstat(fd.get(), &status) == 0 ? std::optional(status) : std::nullopt;
}

std::optional<struct stat> statusOf(const std::string &path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 ? std::optional(status) : std::nullopt;
}

bool isSame(const std::optional<struct stat> &one, const std::optional<struct stat> &other) {
    return one && other && one->st_dev == other->st_dev && one->st_ino == other->st_ino;
}

} // namespace

LineFile::LineFile(std::string path, Start start, Whose whose) : path_(std::move(path)), whose_(whose) {
    if (open(path_) && start == End)
        offset_ = lseek(fd_.get(), 0, SEEK_END);
}

bool LineFile::open(const std::string &path) {
    fd_ = Fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW));
    const auto opened = statusOf(fd_);
    const bool ours = opened && (opened->st_uid == 0 || opened->st_uid == geteuid());
    if (opened && (!S_ISREG(opened->st_mode) || (whose_ == Ours && !ours)))
        fd_ = Fd();
    offset_ = 0;
    forgetLine();
    return isOpen();
}

void LineFile::forgetLine() {
    partial_.clear();
    tooLong_ = false;
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
    const int newer = newerFiles();
    off_t room = kMostBytes; // of the newest of them, whoever may have put them there
    int oldest = 0;
    for (; oldest < newer; ++oldest) {
        const auto status = statusOf(numbered(oldest + 1));
        room -= status ? status->st_size : 0;
        if (room < 0)
            break;
    }
    for (; oldest > 0; --oldest)
        if (open(numbered(oldest)))
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
    const auto opened = statusOf(fd_);
    if (!opened)
        return;
    if (opened->st_size < offset_) {
        offset_ = 0; // truncated
        forgetLine();
    }
    if (opened->st_size - offset_ > kMostBytes) {
        offset_ = opened->st_size - kMostBytes;
        partial_.clear();
        tooLong_ = true; // its beginning is not read
    }
    char buffer[8192];
    const off_t end = opened->st_size; // what is written meanwhile is for the next call: it may never end
    for (ssize_t got; offset_ < end && (got = pread(fd_.get(), buffer, sizeof buffer, offset_)) > 0; offset_ += got) {
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

off_t LineFile::readBackwards(off_t most, const std::function<bool(const std::string &line)> &each) {
    const auto opened = statusOf(fd_);
    if (!opened)
        return 0;
    const off_t last = opened->st_size, first = std::max<off_t>(0, last - most);
    offset_ = last;
    forgetLine();
    std::string line, block; // the line is reversed
    bool ended = false;      // a line feed stands behind it
    bool tooLong = false;
    off_t at = last;
    while (at > first) {
        block.resize(static_cast<std::size_t>(std::min(kBlock, at - first)));
        at -= static_cast<off_t>(block.size());
        if (pread(fd_.get(), block.data(), block.size(), at) != static_cast<ssize_t>(block.size()))
            return last - at; // truncated meanwhile
        for (auto c = block.rbegin(); c != block.rend(); ++c) {
            if (*c != '\n') {
                tooLong = tooLong || line.size() == kLongestLine;
                if (!tooLong)
                    line += *c;
                continue;
            }
            if (!ended) {
                partial_.assign(line.rbegin(), line.rend());
                tooLong_ = tooLong;
            } else if (!tooLong && !each({line.rbegin(), line.rend()})) {
                return last - at;
            }
            ended = true;
            tooLong = false;
            line.clear();
        }
    }
    if (!ended) {
        partial_.assign(line.rbegin(), line.rend());
        tooLong_ = tooLong || first != 0;
    } else if (first == 0 && !tooLong) {
        each({line.rbegin(), line.rend()});
    }
    return last - at;
}

} // namespace oxttool
