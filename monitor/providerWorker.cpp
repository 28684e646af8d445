#include "providerWorker.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <ctime>

#include <nlohmann/json.hpp>

#include "agentDir.h"
#include "alertText.h"
#include "instances.h"
#include "packedName.h"
#include "shownText.h"
#include "values.h"

namespace oxttool {

namespace {

using oxthost::ServiceMode;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr auto kFirstCheck = seconds(1);       // after a pass should have begun
constexpr auto kChecks = seconds(3);           // between further ones
constexpr auto kTraceDelay = milliseconds(50); // from the written save file to the line of a failed pass
constexpr auto kRemember = std::chrono::minutes(10);
constexpr std::size_t kAlertLines = 100;

std::string firstLine(const std::string &text) {
    return text.substr(0, text.find('\n'));
}

HttpResponse answerOf(const oxthost::Reply &reply) {
    nlohmann::json body = {{"status", reply.rc}, {"message", packedName(reply.message)}, {"returned", nullptr}};
    if (reply.returned && !reply.returned->null)
        body["returned"] = {{"type", reply.returned->type},
                            {"number", reply.returned->number},
                            {"text", packedName(reply.returned->text)}};
    HttpResponse response;
    response.body = std::make_shared<std::string>(body.dump() + "\n");
    return response;
}

} // namespace

ProviderWorker::ProviderWorker(MonitorOrders orders)
    : orders_(std::move(orders)), root_(orders_.hosting.root), thread_([this] { run(); }) {}

ProviderWorker::~ProviderWorker() {
    thread_.join();
}

void ProviderWorker::order(std::function<void()> job) {
    const std::lock_guard<std::mutex> lock(mutex_);
    jobs_.push_back(std::move(job));
    jobsWaiting_.ring();
}

void ProviderWorker::call(HttpServer::Id id, MethodCall call) {
    order([this, id, call = std::move(call)] { doCall(id, call); });
}

void ProviderWorker::reload(std::optional<HttpServer::Id> answerTo) {
    order([this, answerTo] { doReload(answerTo); });
}

void ProviderWorker::stop() {
    order([this] { stopping_ = true; });
}

ProviderWorker::News ProviderWorker::takeNews() {
    const std::lock_guard<std::mutex> lock(mutex_);
    news_.silence();
    return std::exchange(pending_, {});
}

template <class Change> void ProviderWorker::tell(Change change) {
    const std::lock_guard<std::mutex> lock(mutex_);
    change(pending_);
    news_.ring();
}

void ProviderWorker::sayOnce(const std::string &line) {
    if (said_.insert(line).second)
        tell([&](News &news) { news.lines.push_back(line); });
}

void ProviderWorker::run() {
    std::optional<Failure> failure;
    try {
        begin();
        while (!stopping_) {
            wait();
            look();
        }
        end();
    } catch (const Failure &problem) {
        failure = problem;
    } catch (const std::exception &problem) {
        failure = Failure(Exit::Environment, problem.what());
    }
    session_.reset();
    tell([&](News &news) {
        news.failure = failure;
        news.ended = true;
    });
}

void ProviderWorker::begin() {
    readFirstSettings();
    checkAgentDirectory(root_);
    memory_ = readMemory(root_ + "data/" + kMemoryFileName, std::time(nullptr));
    rememberedRules_ = memory_.rules;
    rememberedCycle_ = memory_.cycleSeconds;
    saves_ = std::make_unique<SaveSigns>(root_);
    prepare();
    trace_ = std::make_unique<TraceSigns>(root_);
    alertFile_ = std::make_unique<LineFile>(root_ + "log/" + kAlertFileName, LineFile::Beginning, LineFile::Ours);
    readAlerts(); // those from before: to be shown, not to be told
    (void)saves_->writes();
    unseenWrites_ = 0;
    session_ = std::make_unique<HostedSession>(orders_.hosting, ServiceMode::on());
    alertForecasts_ = std::make_unique<AlertForecasts>(root_);
    passBegins(passes_, Clock::now());
    nextCheck_ = passes_.next + kFirstCheck;
    nextRemember_ = passes_.next + kRemember;
    session_->invoke(kThreadClass, "StartMonitoringThread");
    cycle_ = cycleOf(session_->get(kConfigClass));
    tell([](News &news) { news.hosting = true; });
}

Settings ProviderWorker::freshSettings() const {
    const bool named = !orders_.settingsFile.empty();
    if (!named && orders_.hosting.isElsewhere()) // the file is about this machine
        return {};
    return readSettings(named ? orders_.settingsFile : settingsPath(), named);
}

// A mistake in the file must not end the monitoring of a machine that has just booted: until the file is right, what
// its rules have set stays. Whoever names a file sees the mistake.
void ProviderWorker::readFirstSettings() {
    try {
        settings_ = freshSettings();
        rulesKnown_ = true;
        tell([this](News &news) { news.settings = settings_; });
    } catch (const Failure &failure) {
        if (!orders_.settingsFile.empty())
            throw;
        tell([&](News &news) {
            news.settings = settings_;
            news.lines.push_back(std::string(failure.what()) + "\nThe monitor runs without settings.");
        });
    }
}

// The cycle, in a life of the provider before the thread's: the thread's first sleep would still take the old one.
// Nothing is measured in it: outside service mode, a status that has changed would be taken over without an alert.
void ProviderWorker::prepare() {
    const auto cycle = orders_.cycle ? orders_.cycle : wantedCycle();
    if (!cycle)
        return;
    Hosting hosting = orders_.hosting;
    hosting.serviceMode = ServiceMode::off();
    HostedSession session(hosting, ServiceMode::off());
    applyCycle(session, cycle);
    session.close();
}

void ProviderWorker::wait() {
    const auto left = std::chrono::ceil<milliseconds>(std::min(nextCheck_, nextRemember_) - Clock::now());
    pollfd polled[] = {{jobsWaiting_.fd(), POLLIN, 0}, {saves_->fd(), POLLIN, 0}};
    poll(polled, 2, static_cast<int>(std::clamp<long long>(left.count(), 0, 1000)));
    jobsWaiting_.silence();
    for (;;) {
        std::function<void()> job;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (jobs_.empty())
                return;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        job();
    }
}

void ProviderWorker::look() {
    if (stopping_)
        return;
    if (saves_->writes() + std::exchange(unseenWrites_, 0) > 0) {
        passEnded();
    } else if (Clock::now() >= nextCheck_) {
        if (const auto failure = trace_->failure(passBegin())) {
            passFailedFor(*failure);
        } else if (const std::string problem = directoryProblem(root_); !problem.empty()) {
            passFailedFor(problem, passes_.begin); // where no trace library tells
        } else if (Clock::now() >= passes_.overdue(cycle())) {
            passMissed(passes_, cycle(),
                       "no pass has ended since " + utcTime(passes_.lastSuccess) + "; a disk may hang");
            publish(false);
        }
        nextCheck_ = std::max(Clock::now() + kChecks, passes_.next + kFirstCheck);
    }
    if (Clock::now() >= nextRemember_)
        remember();
}

std::time_t ProviderWorker::passBegin() const {
    const auto ago = std::chrono::duration_cast<seconds>(Clock::now() - passes_.begin).count();
    return std::time(nullptr) - std::max<std::time_t>(ago, 0) - 1;
}

void ProviderWorker::passEnded() {
    const auto now = Clock::now();
    std::this_thread::sleep_for(kTraceDelay);
    if (const auto failure = trace_->failure(passBegin())) {
        passFailedFor(*failure);
    } else if (!isSaveWhole(root_)) {
        passFailedFor("the save file was cut short: the disk may be full", now);
    } else {
        passSucceeded(passes_, now, std::time(nullptr), cycle());
        said_.clear();
        publish(true);
    }
    nextCheck_ = passes_.next + kFirstCheck;
}

void ProviderWorker::passFailedFor(const std::string &reason, Clock::time_point end) {
    passFailed(passes_, end, cycle(), withDirectoryProblem(reason, root_));
    publish(true);
}

// It is seen a moment after it ended. The next one is counted from its end, or with each the gap would grow.
void ProviderWorker::passFailedFor(const TracedFailure &failure) {
    const auto now = Clock::now(), begin = std::min(passes_.begin, now);
    const auto ago = std::chrono::system_clock::now() - failure.time; // anything, where the clock was set
    passFailedFor(failure.reason, std::clamp(now - ago, begin, now));
}

void ProviderWorker::measure(Session &session) {
    cycle_ = cycleOf(session.get(kConfigClass));
    std::vector<FileSystem> all;
    for (const oxthost::Instance &instance : session.enumerate(kFileSystemClass))
        all.push_back(fileSystemOf(instance));
    fileSystems_ = std::move(all);
}

// True when something was set.
bool ProviderWorker::applyRules(Session &session) {
    bool changed = false;
    if (!rulesKnown_)
        return changed;
    for (const Change &planned : planChanges(settings_.rules, fileSystems_, memory_.rules)) {
        try {
            changing([&] { change(session, planned.index, planned.setting, planned.to); });
            changed = true;
        } catch (const Failure &failure) {
            forgetChange(memory_.rules, planned);
            sayOnce("the rule in line " + std::to_string(planned.line) + " cannot set the " +
                    kSettingOf[planned.setting].word + " of " + printable(planned.mountPoint) + ": " +
                    firstLine(failure.what()));
        }
    }
    return changed;
}

// What is to be set; none when all is as it was when it was last set, whatever a client has set since.
std::optional<unsigned> ProviderWorker::wantedCycle() const {
    return rulesKnown_ && settings_.cycleSeconds != memory_.cycleSeconds ? settings_.cycleSeconds : std::nullopt;
}

void ProviderWorker::applyCycle(Session &session, std::optional<unsigned> cycle) {
    if (cycle)
        changing([&] { session.invoke(kConfigClass, "SetMonitorCycle", {{"MonitorCycle", std::to_string(*cycle)}}); });
    if (rulesKnown_)
        memory_.cycleSeconds = settings_.cycleSeconds;
}

// Makes one change, which writes the save file once; any further write is that of a pass that ended meanwhile.
template <class Action> void ProviderWorker::changing(Action action) {
    unseenWrites_ += saves_->writes();
    action();
    const unsigned writes = saves_->writes();
    unseenWrites_ += writes > 1 ? writes - 1 : 0;
}

std::vector<Alert> ProviderWorker::readAlerts() {
    std::vector<Alert> alerts;
    alertFile_->read([&](const std::string &line) {
        auto alert = parseAlert(line);
        if (!alert)
            return;
        alerts.push_back(std::move(*alert));
        alertLines_.push_back(line);
        if (alertLines_.size() > kAlertLines)
            alertLines_.pop_front();
    });
    return alerts;
}

void ProviderWorker::remember() {
    if (writeMemory(root_ + "data/" + kMemoryFileName, memory_)) { // a failing disk shows itself by its passes
        rememberedRules_ = memory_.rules;
        rememberedCycle_ = memory_.cycleSeconds;
    }
    nextRemember_ = Clock::now() + kRemember;
}

// Looks at the records, sets what the rules want, and hands the result to the main loop.
void ProviderWorker::publish(bool afterPass) {
    auto view = std::make_shared<View>();
    const std::vector<FileSystem> before = fileSystems_;
    try {
        measure(*session_);
        if (applyRules(*session_))
            measure(*session_);
        // At once: after a kill, what a client has set by hand would else be taken for what a rule has yet to change.
        if (!isRemembered())
            remember();
    } catch (const Failure &failure) {
        sayOnce(failure.what());
    }
    const std::time_t now = std::time(nullptr);
    if (afterPass) {
        addToHistories(memory_, fileSystems_, now);
        measured_ = now;
    }
    for (FileSystem &fs : fileSystems_) {
        fs.outlook = outlookOf(memory_, fs);
        view->curves.push_back(curveOf(memory_, fs));
    }
    view->fileSystems = fileSystems_;
    alertForecasts_->use(fileSystems_);
    view->cycle = cycle_;
    view->updated = static_cast<double>(measured_);
    view->passes = passes_;
    std::vector<Alert> alerts = readAlerts();
    if (!alertFile_->isOpen()) // the agent's own library keeps no file
        alerts = changesOfStatus(before, fileSystems_, now);
    view->alerts.assign(alertLines_.begin(), alertLines_.end());
    tell([&](News &news) {
        news.view = std::move(view);
        std::move(alerts.begin(), alerts.end(), std::back_inserter(news.alerts));
    });
}

void ProviderWorker::doCall(HttpServer::Id id, const MethodCall &call) {
    HttpResponse response;
    try {
        changing([&] { response = answerOf(session_->call(call.className, call.method, call.arguments)); });
        publish(false);
    } catch (const std::exception &problem) {
        response = errorResponse(422, problem.what());
    }
    tell([&](News &news) { news.answers.emplace_back(id, std::move(response)); });
}

void ProviderWorker::doReload(std::optional<HttpServer::Id> answerTo) {
    HttpResponse response;
    try {
        settings_ = freshSettings();
        rulesKnown_ = true;
        applyCycle(*session_, wantedCycle());
        tell([this](News &news) {
            news.settings = settings_;
            news.lines.push_back("the settings are read anew.");
        });
        publish(false);
        response.body = std::make_shared<std::string>("{}\n");
    } catch (const Failure &failure) {
        tell([&](News &news) { news.lines.push_back(std::string(failure.what()) + "\nThe old settings stay."); });
        response = errorResponse(422, failure.what());
    }
    if (answerTo)
        tell([&](News &news) { news.answers.emplace_back(*answerTo, std::move(response)); });
}

void ProviderWorker::end() {
    remember();
    (void)saves_->writes();
    const std::time_t since = std::time(nullptr);
    session_->invoke(kThreadClass, "StopMonitoringThread"); // the provider saves
    alertForecasts_.reset();
    session_->close();
    if (const auto failure = trace_->failure(since); failure || saves_->writes() == 0 || !isSaveWhole(root_))
        throw Failure(Exit::Refused,
                      "the last save failed: " + withDirectoryProblem(failure ? failure->reason : "", root_));
    if (!passes_.failing.empty())
        throw Failure(Exit::Refused, "the last pass failed: " + passes_.failing);
}

} // namespace oxttool
