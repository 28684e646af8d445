// The connections of the monitor's clients, on Unix and TCP sockets, without a thread of their own: the owner polls.
//
// Each connection carries one request and one answer. Heads and bodies are bounded (httpMessage.h), a connection lives
// no longer than 15 seconds, or 90 while it waits for the provider, and each kind of client has at most 64: beyond, the
// oldest of that kind gives way. So whoever connects and sends nothing, reads nothing or comes 200 times at once takes
// nothing from the others, and never the main loop's time.
#ifndef OXT_MONITOR_HTTPSERVER_H
#define OXT_MONITOR_HTTPSERVER_H

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <vector>

#include "fd.h"
#include "httpMessage.h"

namespace oxttool {

// Who asks.
struct Client {
    bool mayChange = false; // root, or this monitor's own user, on a Unix socket
    bool overTcp = false;
    bool overLoopback = false; // to a TCP address that only this machine reaches, wherever it listens
    bool operator==(const Client &other) const { return mayChange == other.mayChange && overTcp == other.overTcp; }
};

class HttpServer {
  public:
    using Id = std::uint64_t;
    using Clock = std::chrono::steady_clock;
    // Answers at once, or returns nothing and calls answer(id) later.
    using Handler = std::function<std::optional<HttpResponse>(const HttpRequest &, const Client &, Id)>;

    explicit HttpServer(Handler handler) : handler_(std::move(handler)) {}

    // The listener stays the caller's.
    void listenOn(int unixListener);
    void listenOnTcp(Fd listener);
    void stopListening(int unixListener);
    void closeTcp();

    // Appends what to poll for, and handles what came of it: the same entries, from `first` on.
    void addTo(std::vector<pollfd> &polled);
    void handle(const std::vector<pollfd> &polled, std::size_t first);
    // Until the next connection is too old; none without connections.
    std::optional<std::chrono::milliseconds> nextDeadline() const;

    void answer(Id id, HttpResponse response); // nothing happens when that client is gone
    std::size_t connections() const { return connections_.size(); }

  private:
    struct Listener {
        int fd;
        Fd owned;
        bool tcp;
    };
    struct Connection {
        enum State { Reading, Waiting, Writing, Draining };
        Fd fd;
        Client client;
        Id id = 0;
        Clock::time_point end;
        State state = Reading;
        RequestReader reader;
        HttpResponse response;
        std::string head;
        std::size_t sent = 0; // of head and body together
        bool headOnly = false, over = false;
    };

    void accept(const Listener &listener);
    void makeRoom(const Client &client);
    void readFrom(Connection &connection);
    void writeTo(Connection &connection);
    void respond(Connection &connection, HttpResponse response);

    Handler handler_;
    std::vector<Listener> listeners_;
    std::list<Connection> connections_; // the oldest first
    Id lastId_ = 0;
};

// A listening TCP socket at a numeric address; throws an environment failure.
Fd listenTcp(const std::string &address, std::uint16_t port);

} // namespace oxttool

#endif
