#include "notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "fd.h"

namespace oxttool {

void notifyManager(const std::string &lines) {
    const char *path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const std::size_t length = path ? std::strlen(path) : 0;
    if (length == 0 || length >= sizeof address.sun_path || (path[0] != '/' && path[0] != '@'))
        return;
    std::memcpy(address.sun_path, path, length);
    if (path[0] == '@') // the abstract name space
        address.sun_path[0] = '\0';
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const void *where = &address;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    (void)sendto(socket.get(), lines.data(), lines.size(), MSG_NOSIGNAL, static_cast<const sockaddr *>(where), size);
}

std::optional<std::chrono::microseconds> watchdogPeriod() {
    const char *period = std::getenv("WATCHDOG_USEC");
    const char *pid = std::getenv("WATCHDOG_PID");
    if (!period || (pid && std::strtol(pid, nullptr, 10) != getpid()))
        return std::nullopt;
    const long long microseconds = std::strtoll(period, nullptr, 10);
    return microseconds > 0 ? std::optional(std::chrono::microseconds(microseconds)) : std::nullopt;
}

} // namespace oxttool
