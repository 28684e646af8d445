#include "monitor.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "agentDir.h"
#include "alertProgram.h"
#include "alertText.h"
#include "api.h"
#include "httpServer.h"
#include "monitorSession.h"
#include "monitorSignals.h"
#include "notify.h"
#include "socketFile.h"
#include "values.h"

namespace oxttool {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr auto kStatusPeriod = seconds(10);
constexpr auto kLongestWait = seconds(10);

class Monitor {
  public:
    Monitor(const MonitorOptions &options, Audience &audience);
    Exit run();

  private:
    void wait();
    void takeSignals();
    void takeNews();
    void takeView(ViewPointer view);
    void openSockets();
    void openTcp();
    void tellManager();
    void end();
    void say(const std::string &line);
    bool isWell() const { return view_ && view_->passes.areWell(Clock::now(), seconds(view_->cycle.seconds)); }

    const MonitorOptions options_;
    Audience &audience_;
    const MonitorSignals signals_;
    ProviderWorker worker_;
    Api api_;
    HttpServer server_;
    AlertProgram program_;
    std::vector<SocketFile> sockets_;
    std::vector<ListenAddress> tcp_; // that are listened on
    Settings settings_;
    ViewPointer view_;
    bool failing_ = false; // as last said
    bool ready_ = false, ending_ = false, ended_ = false;
    std::optional<Failure> failure_;
    Clock::time_point end_, nextStatus_;
};

bool terminalIsGone() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        pollfd polled = {fd, 0, 0};
        if (poll(&polled, 1, 0) > 0 && (polled.revents & POLLHUP))
            return true;
    }
    return false;
}

Monitor::Monitor(const MonitorOptions &options, Audience &audience)
    : options_(options), audience_(audience), worker_(options.orders),
      api_({[this](HttpServer::Id id, ProviderWorker::MethodCall call) { worker_.call(id, std::move(call)); },
            [this](HttpServer::Id id) { worker_.reload(id); }}),
      server_([this](const HttpRequest &request, const Client &client, HttpServer::Id id) {
          return api_.answer(request, client, id);
      }),
      program_([this](const std::string &line) { say(line); }),
      end_(options.duration ? Clock::now() + *options.duration : Clock::time_point::max()), nextStatus_(Clock::now()) {}

void Monitor::say(const std::string &line) {
    std::fprintf(stderr, "oxtfsctl: %s\n", line.c_str());
    audience_.said(line);
}

Exit Monitor::run() {
    while (!ended_) {
        wait();
        takeNews();
        program_.look();
        if (Clock::now() >= end_)
            end();
        if (Clock::now() >= nextStatus_)
            tellManager();
    }
    if (failure_)
        throw Failure(*failure_);
    return Exit::Ok;
}

void Monitor::wait() {
    std::vector<pollfd> polled = {{signals_.fd(), POLLIN, 0}, {worker_.wakeFd(), POLLIN, 0}};
    const std::size_t firstOfServer = polled.size();
    server_.addTo(polled);
    const std::size_t firstOfAudience = polled.size();
    audience_.addTo(polled);
    auto until = std::min(Clock::now() + kLongestWait, nextStatus_);
    if (!ending_)
        until = std::min(until, end_);
    if (const auto left = server_.nextDeadline())
        until = std::min(until, Clock::now() + *left);
    if (program_.isBusy())
        until = std::min(until, Clock::now() + seconds(1));
    const auto left = std::chrono::ceil<milliseconds>(until - Clock::now()).count();
    if (poll(polled.data(), polled.size(), static_cast<int>(std::max<long long>(left, 0))) < 0)
        return; // without memory for it; the next round tries again
    server_.handle(polled, firstOfServer);
    if (polled[0].revents != 0)
        takeSignals();
    if (!audience_.handle(polled, firstOfAudience))
        end();
}

void Monitor::takeSignals() {
    signalfd_siginfo signal;
    while (read(signals_.fd(), &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal)) {
        const auto number = static_cast<int>(signal.ssi_signo);
        const bool terminalClosed = options_.foreground && (signal.ssi_code == SI_KERNEL || terminalIsGone());
        if (number == SIGHUP && !terminalClosed && !ending_)
            worker_.reload(std::nullopt);
        else if (number == SIGINT && ending_)
            std::_Exit(static_cast<int>(Exit::Refused)); // asked twice: the provider hangs
        else if (number != SIGCHLD)
            end();
    }
}

void Monitor::takeNews() {
    ProviderWorker::News news = worker_.takeNews();
    if (news.settings) {
        settings_ = std::move(*news.settings);
        program_.use(settings_.exec);
        openTcp();
    }
    for (const std::string &line : news.lines)
        say(line);
    if (news.hosting && !ending_)
        openSockets();
    const View *known = news.view ? news.view.get() : view_.get();
    for (const Alert &alert : news.alerts) {
        audience_.alerted(alert, known);
        program_.run(variablesOf(alert, known));
    }
    if (news.view)
        takeView(std::move(news.view));
    for (auto &[id, response] : news.answers)
        server_.answer(id, std::move(response));
    // The worker that would tell of a missing pass may itself hang.
    if (view_ && !failing_ && !isWell() && view_->passes.failing.empty() && !ending_) {
        failing_ = true;
        say("no pass has ended since " + utcTime(view_->passes.lastSuccess) + "; a disk may hang.");
        tellManager();
    }
    if (news.ended) {
        ended_ = true;
        failure_ = std::move(news.failure);
    }
}

void Monitor::takeView(ViewPointer view) {
    const bool newPass =
        !view_ || view->passes.succeeded + view->passes.failed != view_->passes.succeeded + view_->passes.failed;
    const unsigned long failures = view_ ? view_->passes.failed : 0;
    view_ = std::move(view);
    api_.show(view_);
    const std::string &reason = view_->passes.failing;
    if (!reason.empty() && !failing_)
        say("passes fail: " + reason);
    if (reason.empty() && failing_)
        say("passes succeed again, after " + std::to_string(failures) + " that failed.");
    failing_ = !reason.empty();
    if (newPass) {
        audience_.passed(*view_);
        tellManager();
    }
}

// Where everybody may ask, and where only root gets to. A monitor goes on monitoring without either.
void Monitor::openSockets() {
    if (mkdir(OXT_RUN_DIR, 0755) != 0 && errno != EEXIST) {
        // the agent's work directory has to do
    }
    for (const std::string &directory : socketDirectories(options_.orders.hosting.root)) {
        if (access(directory.c_str(), W_OK) != 0)
            continue;
        try {
            sockets_.emplace_back(directory);
            server_.listenOn(sockets_.back().get());
        } catch (const Failure &failure) {
            say(failure.what());
        }
    }
}

void Monitor::openTcp() {
    std::vector<ListenAddress> all = options_.listen;
    for (const ListenAddress &address : settings_.listen)
        if (std::find(all.begin(), all.end(), address) == all.end())
            all.push_back(address);
    if (all == tcp_)
        return; // a port that is let go may be another's at once
    server_.closeTcp();
    tcp_.clear();
    for (const ListenAddress &address : all)
        try {
            server_.listenOnTcp(listenTcp(address.address, address.port));
            tcp_.push_back(address);
        } catch (const Failure &failure) {
            say(failure.what());
        }
}

void Monitor::tellManager() {
    static const auto watchdog = watchdogPeriod();
    nextStatus_ = Clock::now() + (watchdog ? std::min<Clock::duration>(kStatusPeriod, *watchdog / 2) : kStatusPeriod);
    std::string lines = "WATCHDOG=1";
    if (view_ && !ending_) {
        const auto count = [this](std::int64_t status) {
            return static_cast<std::size_t>(
                std::count_if(view_->fileSystems.begin(), view_->fileSystems.end(),
                              [status](const FileSystem &fs) { return fs.status == status; }));
        };
        lines += "\nSTATUS=" + statusLine(view_->passes, view_->fileSystems.size(), count(2), count(3), Clock::now());
        if (!ready_)
            lines += "\nREADY=1";
        ready_ = true;
    }
    notifyManager(lines);
}

void Monitor::end() {
    if (ending_)
        return;
    ending_ = true;
    notifyManager("STOPPING=1\nSTATUS=saving");
    for (const SocketFile &socket : sockets_)
        server_.stopListening(socket.get());
    sockets_.clear(); // before the provider ends: whoever asks now waits for its end and hosts one itself
    worker_.stop();
}

} // namespace

Exit runMonitor(const MonitorOptions &options, Audience &audience) {
    if (MonitorSession::find(options.orders.hosting.root))
        throw Failure(Exit::Environment,
                      "a monitor is running here, and there can be one only.\n'oxtfsctl watch' without "
                      "further options shows what it does; 'systemctl stop oxtfs-watch' ends it.");
    return Monitor(options, audience).run();
}

} // namespace oxttool
