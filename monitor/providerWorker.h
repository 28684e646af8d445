// The one thread of a monitor that calls the hosted provider. A disk that hangs stops this thread, not the main loop:
// it goes on answering from the last view, beats the watchdog and says what is wrong.
#ifndef OXT_MONITOR_PROVIDERWORKER_H
#define OXT_MONITOR_PROVIDERWORKER_H

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "alertFile.h"
#include "alertForecast.h"
#include "bell.h"
#include "failure.h"
#include "fd.h"
#include "hostedSession.h"
#include "httpServer.h"
#include "memoryFile.h"
#include "passSigns.h"
#include "settings.h"
#include "view.h"

namespace oxttool {

struct MonitorOrders {
    Hosting hosting;
    std::string settingsFile;      // empty: the one of this build, which need not be there
    std::optional<unsigned> cycle; // to set first
};

class ProviderWorker {
  public:
    // What the main loop has not heard yet.
    struct News {
        ViewPointer view; // null when there is no newer one
        std::vector<Alert> alerts;
        std::vector<std::string> lines;   // for the error stream
        std::optional<Settings> settings; // read anew
        std::vector<std::pair<HttpServer::Id, HttpResponse>> answers;
        bool hosting = false; // the provider runs, and nobody else works in the agent's directory
        bool ended = false;
        std::optional<Failure> failure; // why it ended, unless it was asked to
    };
    struct MethodCall {
        std::string className, method;
        Session::Arguments arguments;
    };

    explicit ProviderWorker(MonitorOrders orders);
    ~ProviderWorker(); // the thread has ended

    int wakeFd() const { return news_.fd(); } // readable while there is news
    News takeNews();

    // Orders; each is carried out behind those before it.
    void call(HttpServer::Id id, MethodCall call);
    void reload(std::optional<HttpServer::Id> answerTo);
    void stop();

  private:
    using Clock = std::chrono::steady_clock;

    void run();
    void begin();
    void readFirstSettings();
    Settings freshSettings() const;
    void prepare();
    void wait();
    void look();
    void end();

    void passEnded();
    void passFailedFor(const std::string &reason, Clock::time_point end);
    void passFailedFor(const TracedFailure &failure);
    std::chrono::seconds cycle() const { return std::chrono::seconds(cycle_.seconds ? cycle_.seconds : 1); }
    std::time_t passBegin() const;

    void measure(Session &session);
    bool applyRules(Session &session);
    std::optional<unsigned> wantedCycle() const;
    void applyCycle(Session &session, std::optional<unsigned> cycle);
    template <class Action> void changing(Action action);
    std::vector<Alert> readAlerts();
    void remember();
    bool isRemembered() const { return memory_.rules == rememberedRules_ && memory_.cycleSeconds == rememberedCycle_; }
    void publish(bool afterPass);
    void doCall(HttpServer::Id id, const MethodCall &call);
    void doReload(std::optional<HttpServer::Id> answerTo);

    void order(std::function<void()> job);
    template <class Change> void tell(Change change);
    void sayOnce(const std::string &line);

    // Both threads'.
    std::mutex mutex_;
    std::deque<std::function<void()>> jobs_;
    News pending_;
    Bell jobsWaiting_, news_;

    // The worker's own.
    const MonitorOrders orders_;
    const std::string root_;
    Settings settings_;
    bool rulesKnown_ = false; // not before the settings file was read without a mistake
    Memory memory_;
    RuleMemories rememberedRules_; // as the file has them
    std::optional<unsigned> rememberedCycle_;
    std::unique_ptr<Session> session_;
    std::unique_ptr<SaveSigns> saves_;
    std::unique_ptr<TraceSigns> trace_;
    std::unique_ptr<LineFile> alertFile_;
    std::unique_ptr<AlertForecasts> alertForecasts_;
    std::deque<std::string> alertLines_;
    Passes passes_;
    std::time_t measured_ = 0; // by the last pass
    Cycle cycle_;
    std::vector<FileSystem> fileSystems_;
    unsigned unseenWrites_ = 0; // of a pass, while a change was made
    Clock::time_point nextCheck_{}, nextRemember_{};
    std::set<std::string> said_;
    bool stopping_ = false;

    std::thread thread_; // last: it uses all of the above
};

} // namespace oxttool

#endif
