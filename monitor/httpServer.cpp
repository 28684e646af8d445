#include "httpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "failure.h"
#include "socketFile.h"

namespace oxttool {

namespace {

using std::chrono::seconds;

constexpr std::size_t kMostOfAKind = 64;
constexpr int kMostAtOnce = 16; // accepted in a row, so that others are served in between
constexpr auto kAge = seconds(15);
constexpr auto kAgeOfChange = seconds(90);
constexpr std::size_t kMostDrained = 1024 * 1024;

const sockaddr *plain(const sockaddr_storage &address) {
    return static_cast<const sockaddr *>(static_cast<const void *>(&address));
}

// The address as the calls of sockets take it, and its length; 0 when it is none.
socklen_t resolve(const std::string &text, std::uint16_t port, sockaddr_storage &address) {
    sockaddr_in four = {};
    sockaddr_in6 six = {};
    address = {};
    if (inet_pton(AF_INET, text.c_str(), &four.sin_addr) == 1) {
        four.sin_family = AF_INET;
        four.sin_port = htons(port);
        std::memcpy(&address, &four, sizeof four);
        return sizeof four;
    }
    if (inet_pton(AF_INET6, text.c_str(), &six.sin6_addr) != 1)
        return 0;
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(port);
    std::memcpy(&address, &six, sizeof six);
    return sizeof six;
}

// Whether the connection came to an address that only this machine reaches, also as one of IPv6.
bool isOverLoopback(int fd) {
    union {
        sockaddr any;
        sockaddr_in four;
        sockaddr_in6 six;
    } here = {};
    socklen_t size = sizeof here;
    if (getsockname(fd, &here.any, &size) != 0)
        return true; // the stricter one
    if (here.any.sa_family != AF_INET6)
        return ntohl(here.four.sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
    const in6_addr &address = here.six.sin6_addr;
    return IN6_IS_ADDR_LOOPBACK(&address) || (IN6_IS_ADDR_V4MAPPED(&address) && address.s6_addr[12] == IN_LOOPBACKNET);
}

bool wouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

} // namespace

void HttpServer::listenOn(int unixListener) {
    listeners_.push_back({unixListener, Fd(), false});
}

void HttpServer::listenOnTcp(Fd listener) {
    const int fd = listener.get();
    listeners_.push_back({fd, std::move(listener), true});
}

void HttpServer::stopListening(int unixListener) {
    listeners_.erase(std::remove_if(listeners_.begin(), listeners_.end(),
                                    [=](const Listener &listener) { return listener.fd == unixListener; }),
                     listeners_.end());
}

void HttpServer::closeTcp() {
    listeners_.erase(
        std::remove_if(listeners_.begin(), listeners_.end(), [](const Listener &listener) { return listener.tcp; }),
        listeners_.end());
}

void HttpServer::addTo(std::vector<pollfd> &polled) {
    for (const Listener &listener : listeners_)
        polled.push_back({listener.fd, POLLIN, 0});
    for (const Connection &connection : connections_) {
        const bool writes = connection.state == Connection::Writing;
        polled.push_back({connection.fd.get(), static_cast<short>(writes ? POLLOUT : POLLIN), 0});
    }
}

void HttpServer::handle(const std::vector<pollfd> &polled, std::size_t first) {
    const std::size_t firstConnection = first + listeners_.size();
    std::size_t at = firstConnection;
    const auto now = Clock::now();
    for (Connection &connection : connections_) {
        const short events = polled[at++].revents;
        connection.over |= connection.end <= now;
        if (connection.over || events == 0)
            continue;
        if (connection.state == Connection::Writing)
            writeTo(connection);
        else
            readFrom(connection);
    }
    connections_.remove_if([](const Connection &connection) { return connection.over; });
    for (std::size_t i = 0; i < listeners_.size(); ++i)
        if (polled[first + i].revents != 0)
            accept(listeners_[i]);
}

std::optional<std::chrono::milliseconds> HttpServer::nextDeadline() const {
    std::optional<std::chrono::milliseconds> next;
    for (const Connection &connection : connections_) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(connection.end - Clock::now());
        next = std::max(std::min(next.value_or(left), left), std::chrono::milliseconds(0));
    }
    return next;
}

void HttpServer::accept(const Listener &listener) {
    for (int i = 0; i < kMostAtOnce; ++i) {
        Fd fd(accept4(listener.fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!fd)
            return;
        Connection connection;
        connection.client.overTcp = listener.tcp;
        connection.client.overLoopback = listener.tcp && isOverLoopback(fd.get());
        const auto user = listener.tcp ? std::nullopt : peerOf(fd.get());
        connection.client.mayChange = user && (*user == 0 || *user == geteuid());
        connection.fd = std::move(fd);
        connection.id = ++lastId_;
        connection.end = Clock::now() + kAge;
        makeRoom(connection.client);
        connections_.push_back(std::move(connection));
    }
}

void HttpServer::makeRoom(const Client &client) {
    const auto ofThisKind = [&client](const Connection &connection) { return connection.client == client; };
    const auto count = std::count_if(connections_.begin(), connections_.end(), ofThisKind);
    if (static_cast<std::size_t>(count) < kMostOfAKind)
        return;
    // Those that have not asked yet go first, those whose answer is under way last.
    for (const auto state : {Connection::Reading, Connection::Draining, Connection::Writing, Connection::Waiting}) {
        const auto oldest = std::find_if(connections_.begin(), connections_.end(), [&](const Connection &connection) {
            return ofThisKind(connection) && connection.state == state;
        });
        if (oldest != connections_.end()) {
            connections_.erase(oldest);
            return;
        }
    }
}

void HttpServer::readFrom(Connection &connection) {
    char buffer[16384];
    const ssize_t got = recv(connection.fd.get(), buffer, sizeof buffer, 0);
    if (got < 0 && wouldBlock())
        return;
    if (got <= 0) { // gone; whoever still waits for an answer does not read it
        connection.over = true;
        return;
    }
    if (connection.state == Connection::Draining) {
        connection.sent += static_cast<std::size_t>(got);
        connection.over = connection.sent > kMostDrained;
        return;
    }
    if (connection.state == Connection::Waiting)
        return; // more than its request: not looked at
    const auto state = connection.reader.put({buffer, static_cast<std::size_t>(got)});
    if (state == RequestReader::Refused) {
        respond(connection, errorResponse(connection.reader.refusal(), "The request is no HTTP, or too large."));
    } else if (state == RequestReader::Complete) {
        connection.headOnly = connection.reader.request().method == "HEAD";
        connection.state = Connection::Waiting;
        connection.end = std::max(connection.end, Clock::now() + kAgeOfChange);
        if (auto response = handler_(connection.reader.request(), connection.client, connection.id))
            respond(connection, std::move(*response));
    }
}

void HttpServer::respond(Connection &connection, HttpResponse response) {
    connection.response = std::move(response);
    connection.head = headOf(connection.response);
    connection.state = Connection::Writing;
    connection.end = Clock::now() + kAge;
    writeTo(connection);
}

void HttpServer::writeTo(Connection &connection) {
    static const std::string nothing;
    const std::string &body = connection.response.body && !connection.headOnly ? *connection.response.body : nothing;
    const std::size_t all = connection.head.size() + body.size();
    while (connection.sent < all) {
        const bool inHead = connection.sent < connection.head.size();
        const std::string &part = inHead ? connection.head : body;
        const std::size_t from = inHead ? connection.sent : connection.sent - connection.head.size();
        const ssize_t put =
            send(connection.fd.get(), part.data() + from, part.size() - from, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put < 0 && wouldBlock())
            return;
        if (put <= 0) {
            connection.over = true;
            return;
        }
        connection.sent += static_cast<std::size_t>(put);
    }
    // Closed with unread bytes, the connection would be reset and the answer could be lost with it.
    connection.response = {};
    connection.sent = 0;
    connection.state = Connection::Draining;
    connection.over = shutdown(connection.fd.get(), SHUT_WR) != 0;
}

void HttpServer::answer(Id id, HttpResponse response) {
    for (Connection &connection : connections_)
        if (connection.id == id && connection.state == Connection::Waiting) {
            respond(connection, std::move(response));
            return;
        }
}

Fd listenTcp(const std::string &address, std::uint16_t port) {
    sockaddr_storage where = {};
    const socklen_t size = resolve(address, port, where);
    Fd listener(socket(where.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int yes = 1;
    setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    // At boot an interface may come later than the monitor.
    setsockopt(listener.get(), IPPROTO_IP, IP_FREEBIND, &yes, sizeof yes);
    if (!listener || bind(listener.get(), plain(where), size) != 0 || listen(listener.get(), 128) != 0)
        throw Failure(Exit::Environment, "cannot listen at " + address + ", port " + std::to_string(port) + ": " +
                                             std::strerror(errno) + ".");
    return listener;
}

} // namespace oxttool
