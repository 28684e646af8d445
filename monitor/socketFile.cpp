#include "socketFile.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "agentDir.h"
#include "failure.h"

namespace oxttool {

namespace {

constexpr int kBacklog = 128;
constexpr int kPatienceSeconds = 10;
constexpr mode_t kEverybody = 0666;

// The name in the directory that is open: no link on the way can be changed in between.
sockaddr_un addressIn(int directory, const std::string &name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", directory, name.c_str());
    return address;
}

Fd openDirectory(const std::string &path) {
    return Fd(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// A pointer that the calls of sockets take.
const sockaddr *plain(const sockaddr_un &address) {
    return static_cast<const sockaddr *>(static_cast<const void *>(&address));
}

Fd connectIn(int directory) {
    Fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = addressIn(directory, kSocketName);
    // A monitor that is stopped, by a signal or a debugger, takes no connections and answers nothing.
    const timeval patience = {kPatienceSeconds, 0};
    for (const int option : {SO_SNDTIMEO, SO_RCVTIMEO})
        setsockopt(socket.get(), SOL_SOCKET, option, &patience, sizeof patience);
    if (!socket || connect(socket.get(), plain(address), sizeof address) != 0)
        return Fd();
    return socket;
}

Failure problem(const std::string &what) {
    return {Exit::Environment, what + ": " + std::strerror(errno)};
}

} // namespace

std::vector<std::string> socketDirectories(const std::string &root) {
    if (root != agentDirectory()) // of another machine, about which nobody here can ask
        return {root + "work"};
    return {root + "work", OXT_RUN_DIR};
}

SocketFile::SocketFile(const std::string &directory)
    : path_(directory + "/" + kSocketName), directory_(openDirectory(directory)),
      listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    struct stat state = {};
    if (!directory_ || !listener_ || fstat(directory_.get(), &state) != 0)
        throw problem("cannot listen in " + directory);
    if ((state.st_uid != geteuid() && state.st_uid != 0) || (state.st_mode & (S_IWGRP | S_IWOTH)))
        throw Failure(Exit::Environment, "others can write in " + directory +
                                             ", so no socket is made there.\nMake it yours alone: chmod go-w " +
                                             directory);
    // A live one that takes no connections now is not replaced either.
    if (connectIn(directory_.get()) || errno == EAGAIN)
        throw Failure(Exit::Environment, "a monitor is running: it answers at " + path_ + ".");
    // Made under another name and moved into its place with its final mode: clients find the old one or this one.
    const std::string fresh = std::string(kSocketName) + ".new";
    unlinkat(directory_.get(), fresh.c_str(), 0);
    const sockaddr_un address = addressIn(directory_.get(), fresh);
    if (bind(listener_.get(), plain(address), sizeof address) != 0 ||
        fchmodat(directory_.get(), fresh.c_str(), kEverybody, 0) != 0 || listen(listener_.get(), kBacklog) != 0 ||
        renameat(directory_.get(), fresh.c_str(), directory_.get(), kSocketName) != 0)
        throw problem("cannot listen at " + path_);
}

SocketFile::~SocketFile() {
    if (listener_)
        unlinkat(directory_.get(), kSocketName, 0);
}

Fd connectTo(const std::string &directory) {
    const Fd opened = openDirectory(directory);
    Fd socket = opened ? connectIn(opened.get()) : Fd();
    if (!socket)
        return socket;
    const auto server = peerOf(socket.get());
    return server && (*server == 0 || *server == geteuid()) ? std::move(socket) : Fd();
}

std::optional<uid_t> peerOf(int socket) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return std::nullopt;
    return peer.uid;
}

} // namespace oxttool
