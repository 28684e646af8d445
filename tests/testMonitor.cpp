// What a monitor is made of besides the provider: settings, rules, history and forecast, its memory, what it answers to
// requests, and the bounds of its connections.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <iomanip>
#include <random>
#include <thread>

#include "alertProgram.h"
#include "api.h"
#include "golden.h"
#include "memoryFile.h"
#include "monitorState.h"
#include "notify.h"
#include "packedName.h"
#include "page.h"
#include "passes.h"
#include "socketFile.h"
#include "viewText.h"

namespace {

using namespace oxttool;
using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

template <class Action> std::string problemOf(Action action) {
    try {
        action();
    } catch (const Failure &failure) {
        return failure.what();
    }
    return "none";
}

// Each line of the script is a whole file; "\n" in it begins a new line.
TEST(MonitorSettings, inARow) {
    expectReplay("settings.txt", [](const std::string &line) {
        std::string text;
        for (std::size_t i = 0; i < line.size(); ++i)
            text += line.compare(i, 2, "\\n") == 0 ? (++i, '\n') : line[i];
        std::ostringstream shown;
        std::string problem = problemOf([&] {
            const Settings settings = parseSettings(text, "FILE");
            shown << "cycle " << settings.cycleSeconds.value_or(0);
            for (const ListenAddress &address : settings.listen)
                shown << " listen " << address.address << " " << address.port;
            for (const std::string &word : settings.exec)
                shown << " exec " << word;
            for (const Rule &rule : settings.rules)
                shown << " rule " << rule.line << " '" << rule.mount << "' '" << rule.device << "' '" << rule.type
                      << "' " << (rule.monitored ? *rule.monitored ? "on" : "off" : "-") << " "
                      << (rule.warning ? rule.warning->of(1000) : 0) << " " << (rule.fatal ? rule.fatal->of(1000) : 0);
            shown << ", ";
        });
        problem.resize(std::min(problem.size(), problem.find(" TOML: "))); // the rest is the library's
        return shown.str() + problem + "\n";
    });
}

FileSystem fileSystem(const std::string &mountPoint, std::uint64_t size, std::uint64_t free) {
    FileSystem fs;
    fs.index = "1";
    fs.device = "/dev" + mountPoint;
    fs.mountPoint = mountPoint;
    fs.type = "ext4";
    fs.driveType = 0;
    fs.monitored = 1;
    fs.status = 1;
    fs.sizeMiB = size;
    fs.freeMiB = free;
    fs.warningMiB = size / 10;
    fs.fatalMiB = size / 100;
    return fs;
}

struct RulesAtWork : ::testing::Test {
    // The changes, made as the provider makes them, as "setting from -> to".
    std::vector<std::string> apply() {
        std::vector<std::string> texts;
        for (const Change &change : planChanges(rules, all, memories)) {
            texts.push_back(change.mountPoint + ": " + kSettingOf[change.setting].word + " " +
                            std::to_string(change.from) + " -> " + std::to_string(change.to));
            for (FileSystem &fs : all)
                if (fs.device == change.device)
                    *std::array<std::uint64_t *, 2>{&fs.warningMiB, &fs.fatalMiB}.at(change.setting - 1) = change.to;
        }
        return texts;
    }
    void use(const std::string &text) { rules = parseSettings(text, "FILE").rules; }
    std::string warningBy() { return originOf(memories, all[0], 1); }
    // What the provider does when the size changes.
    void resize(std::uint64_t size) { all[0] = fileSystem("/data", size, size / 2); }

    std::vector<FileSystem> all = {fileSystem("/data", 1000, 500)};
    std::vector<Rule> rules;
    RuleMemories memories;
};

TEST_F(RulesAtWork, aPercentageSurvivesAResizeAndAHandTheRule) {
    use("[[rule]]\nmount = '/d*'\nwarning = '20%'\n[[rule]]\nwarning = '5%'\nfatal = '3%'\n");
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 200", "/data: fatal threshold 10 -> 30"))
        << "of two rules the first that matches counts, for each setting";
    EXPECT_THAT(apply(), IsEmpty());
    resize(2000);
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 200 -> 400", "/data: fatal threshold 20 -> 60"));
    all[0].warningMiB = 777;
    EXPECT_THAT(apply(), IsEmpty()) << "set by hand";
    EXPECT_EQ(warningBy(), "by hand");
    memories = parseMemory(memoryText({memories, {}, {}}), 0).rules;
    EXPECT_THAT(apply(), IsEmpty()) << "after a restart";
    all[0].sizeMiB = all[0].freeMiB = 0;
    EXPECT_THAT(apply(), IsEmpty()) << "not measured for a moment";
    all[0].sizeMiB = 2000;
    EXPECT_THAT(apply(), IsEmpty());
    use("[[rule]]\nwarning = '21%'\nfatal = '3%'\n");
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 777 -> 420")) << "another outcome";
    EXPECT_EQ(warningBy(), "the rule in line 1");
    all[0].warningMiB = 5;
    EXPECT_THAT(apply(), IsEmpty());
    resize(1000);
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 210", "/data: fatal threshold 10 -> 30"))
        << "the provider has given up what was set by hand";
    use("[[rule]]\nwarning = '300M'\nfatal = '3%'\n");
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 210 -> 300"));
    resize(1001);
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 300", "/data: fatal threshold 10 -> 30"))
        << "an amount, too";
    use("");
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 300 -> 100", "/data: fatal threshold 30 -> 10"))
        << "no rule any more: what was before";
    EXPECT_EQ(warningBy(), "no rule");
}

TEST_F(RulesAtWork, onlyWhatTheProviderTakes) {
    FileSystem small = fileSystem("/small", 99, 50), removable = fileSystem("/stick", 1000, 500);
    FileSystem second = fileSystem("/again", 1000, 500), tiny = fileSystem("/tiny", 150, 50);
    removable.driveType = 1;
    second.device = all[0].device;
    all.insert(all.end(), {small, removable, second, tiny});
    use("[[rule]]\nwarning = '200M'\nfatal = '0.1%'\n");
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 200", "/data: fatal threshold 10 -> 1",
                                     "/tiny: warning threshold 15 -> 150"))
        << "no change of what is never judged, none of a device's second mount, none above the size";
    memories["/dev/data"].settings[1].outcome.reset();
    all[0].warningMiB = 100;
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 200")) << "refused, and tried again";
    const FileSystem gone = all[0];
    all = {small};
    apply();
    all = {gone};
    all[0].warningMiB = 100;
    all[0].fatalMiB = 10;
    EXPECT_THAT(apply(), ElementsAre("/data: warning threshold 100 -> 200", "/data: fatal threshold 10 -> 1"))
        << "gone and mounted again, the provider has its defaults";
    all[0].warningMiB = 1;
    EXPECT_EQ(allChanges(rules, all).size(), 1u);
}

// One point a minute, ending now, of `free` minutes ago.
template <class Free> std::vector<Measurement> minutes(int count, Free free) {
    History history;
    for (int ago = count - 1; ago >= 0; --ago)
        history.add({1000000000 - 60 * ago, static_cast<std::uint64_t>(free(ago))});
    return history.points();
}

TEST(MonitorForecast, steadyTrendsAlone) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> noise(-40, 40);
    const struct {
        const char *what;
        std::vector<Measurement> points;
        double hours; // to full; 0: nothing is told
    } cases[] = {
        {"too few points", minutes(7, [](int ago) { return 1000 + 10 * ago; }), 0},
        {"nothing happens", minutes(1440, [](int) { return 5000; }), 0},
        {"it grows", minutes(1440, [](int ago) { return 90000 - 10 * ago; }), 0},
        {"600 MiB an hour", minutes(600, [](int ago) { return 6000 + 10 * ago; }), 10},
        {"the same with noise", minutes(600, [&](int ago) { return 6000 + 10 * ago + noise(random); }), 10},
        {"the same with one outlier", minutes(600, [](int ago) { return ago == 3 ? 60000 : 6000 + 10 * ago; }), 10},
        {"noise", minutes(600, [&](int) { return 6000 + noise(random); }), 0},
        {"one large file", minutes(600, [](int ago) { return ago < 5 ? 6000 : 36000; }), 0},
        {"a runaway after a quiet day", minutes(1440, [](int ago) { return 6000 + (ago < 20 ? 100 * ago : 2000); }), 1},
        {"logs that rotate each hour", minutes(600, [](int ago) { return 6000 + 50 * (ago % 60); }), 0},
        {"the same, and now beyond",
         minutes(600, [](int ago) { return ago < 20 ? 3000 + 100 * ago : 6000 + 50 * (ago % 60); }), 0.5},
        {"freed once, filling again", minutes(600, [](int ago) { return 6000 + 100 * (ago < 60 ? ago : ago - 60); }),
         1},
        {"longer than a year", minutes(1440, [](int ago) { return 100000000 + ago; }), 0},
    };
    for (const auto &row : cases) {
        const auto forecast = forecastOf(row.points);
        EXPECT_EQ(forecast.has_value(), row.hours > 0) << row.what;
        if (forecast && row.hours > 0) {
            EXPECT_NEAR(forecast->secondsToFull / 3600, row.hours, row.hours / 10) << row.what;
        }
    }
}

TEST(MonitorForecast, historyIsBoundedAndSurvivesClocksAndRestarts) {
    Memory memory;
    const std::string odd = "/m\xff\xc3\xa9\n\"";
    History &history = memory.histories[{"/dev/a", odd}];
    std::int64_t now = 1000000000;
    for (int i = 0; i < 30000; ++i, now += 10)
        history.add({now, static_cast<std::uint64_t>(i)});
    EXPECT_LE(history.points().size(), 480u);
    EXPECT_GE(history.points().front().time, now - History::kDay - 10);
    EXPECT_LE(history.points().front().time, now - History::kDay + History::kStep);
    EXPECT_EQ(history.points().back().freeMiB, 29999u);
    for (std::size_t i = 1; i < history.points().size(); ++i)
        EXPECT_LE(history.points()[i].time - history.points()[i - 1].time, History::kStep + 10);
    const std::string text = memoryText(memory);
    EXPECT_EQ(memoryText(parseMemory(text, now)), text);
    EXPECT_THAT(parseMemory(text, now + 2 * History::kDay).histories.begin()->second.points(), IsEmpty());
    for (const char *broken :
         {"", "[]", "{\"histories\":[{\"device\":1}]}", "{\"rules\":[[]],\"histories\":{},\"cycle\":-1}",
          "{\"histories\":[{\"device\":\"\u4e00\",\"mount\":\"/\",\"points\":[1,1]}]}"})
        EXPECT_TRUE(parseMemory(broken, now).histories.empty()) << broken;
    history.add({now - 5000, 1});
    EXPECT_EQ(history.points().back().freeMiB, 1u) << "the clock was set back";
    EXPECT_LE(history.points()[history.points().size() - 2].time, now - 5000);
}

TEST(MonitorPasses, areTold) {
    const auto start = Passes::Clock::time_point() + seconds(1000);
    Passes passes;
    passes.next = start;
    passSucceeded(passes, start + milliseconds(40), 77, seconds(60));
    EXPECT_NEAR(passes.lastDuration.count(), 0.04, 1e-9);
    EXPECT_EQ(statusLine(passes, 12, 1, 0, start + seconds(20)), "12 file systems, 1 warning, next look in 41 s");
    EXPECT_TRUE(passes.areWell(start + seconds(99), seconds(60)));
    EXPECT_FALSE(passes.areWell(start + seconds(101), seconds(60))) << "missing, and nobody says so";
    passFailed(passes, start + seconds(61), seconds(60), "why");
    EXPECT_FALSE(passes.areWell(start + seconds(61), seconds(60)));
    EXPECT_EQ(statusLine(passes, 1, 0, 2, start), "1 file system, 2 fatal, passes fail: why");
    passMissed(passes, seconds(60), "gone");
    EXPECT_EQ(passes.failed, 2u);
    EXPECT_EQ(passes.overdue(seconds(10)), passes.next + seconds(10));
    passSucceeded(passes, start + seconds(200), 99, seconds(60));
    EXPECT_TRUE(passes.failing.empty());
    EXPECT_EQ(passes.lastSuccess, 99);
}

ViewPointer odd() {
    auto view = std::make_shared<View>();
    FileSystem fs = fileSystem("/<script>alert('\"&\")\n\xff\xc2\x9b", 1000, 250);
    fs.status = 2;
    fs.outlook = Outlook{Forecast{100, 9000}, "no rule", "by hand", "the rule in line 3"};
    view->fileSystems = {fs, fileSystem("/plain", 1000, 900)};
    view->curves = {minutes(60, [](int ago) { return 250 + 5 * ago; }), {}};
    view->cycle = {60, 10, 3600, 60};
    view->passes.succeeded = 3;
    view->passes.next = Passes::Clock::now() + seconds(60);
    view->alerts = {
        "rubbish",
        R"({"eventId":"0x800403E9","time":"T","mountPoint":"</td><b>","device":"d","availableMiB":1,"sizeMiB":2})"};
    return view;
}

TEST(MonitorAnswers, hostileNamesStayNames) {
    const ViewPointer view = odd();
    const std::string page = pageText(*view, false, "abc");
    EXPECT_EQ(page.find("<script>alert"), std::string::npos);
    EXPECT_EQ(page.find("</td><b>"), std::string::npos);
    EXPECT_EQ(page.find('\xff'), std::string::npos);
    EXPECT_THAT(page, HasSubstr("/&lt;script&gt;alert(&#39;&quot;&amp;&quot;)"));
    EXPECT_THAT(page, HasSubstr("2 h 30 min"));
    EXPECT_THAT(page, HasSubstr("role=\"alert\">The monitor's looks"));
    EXPECT_LT(page.find("25 %"), page.find("/plain")) << "the worst first";
    EXPECT_THAT(metricsText(*view, false), HasSubstr("oxtfs_monitor_up 0\n"));
    EXPECT_THAT(metricsText(*view, true), HasSubstr("oxtfs_filesystem_full_seconds{device=\"/dev/<script>"));
    EXPECT_THAT(alertsText(*view), HasSubstr("</td><b>"));
    const MonitorState told = parseState(stateText(*view, true));
    EXPECT_EQ(told.fileSystems[0].mountPoint, view->fileSystems[0].mountPoint) << "every byte of it";
    EXPECT_EQ(told.fileSystems[0].outlook->warningBy, "by hand");
    EXPECT_EQ(told.fileSystems[0].outlook->forecast->secondsToFull, 9000);
    EXPECT_FALSE(told.fileSystems[1].outlook->forecast);
    EXPECT_EQ(told.cycle.greatest, 3600u);
    EXPECT_THAT(problemOf([] { parseState("{}"); }), HasSubstr("another language"));
}

// The page as a browser has it, without the server.
TEST(MonitorAnswers, thePageInABrowser) {
    if (std::system("command -v chromium >/dev/null") != 0)
        GTEST_SKIP() << "needs chromium";
    char name[] = "/tmp/oxtpageXXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    const std::string directory = name;
    for (const int count : {1, 40, 1000}) {
        View view = *odd();
        view.fileSystems.resize(1);
        for (int i = 1; i < count; ++i)
            view.fileSystems.push_back(fileSystem("/f" + std::to_string(i) + " \u202e<i>&amp;\t", 1000, 500));
        view.curves.resize(view.fileSystems.size());
        std::ofstream(directory + "/page.html") << pageText(view, true, "abc");
        const std::string command = "timeout 120 chromium --headless --no-sandbox --disable-gpu --disable-quic "
                                    "--no-first-run --disable-background-networking --disable-component-update "
                                    "--disable-sync --user-data-dir=" +
                                    directory + "/profile --dump-dom file://" + directory + "/page.html >" + directory +
                                    "/dom 2>/dev/null";
        ASSERT_EQ(std::system(command.c_str()), 0);
        const std::string dom = fileContent(directory + "/dom");
        std::size_t rows = 0;
        for (std::size_t at = 0; (at = dom.find("<th scope=\"row\">", at)) != std::string::npos; ++at)
            ++rows;
        EXPECT_EQ(rows, static_cast<std::size_t>(count));
        EXPECT_THAT(dom, HasSubstr("/&lt;script&gt;alert('\"&amp;\")"));
        EXPECT_THAT(dom, HasSubstr("<p>" + std::to_string(count) + " file system"));
        EXPECT_THAT(dom, Not(HasSubstr("<i>")));
    }
    std::filesystem::remove_all(directory);
}

TEST(MonitorAnswers, whoMayAskWhat) {
    std::vector<std::string> ordered;
    Api api({[&](HttpServer::Id, ProviderWorker::MethodCall call) {
                 ordered.push_back(call.className + "." + call.method);
                 for (const auto &[name, text] : call.arguments)
                     ordered.push_back(name + "=" + text);
             },
             [&](HttpServer::Id) { ordered.push_back("reload"); }});
    const Client root{true, false, false}, user{false, false, false}, tcp{false, true, false}, local{false, true, true};
    const std::string call = R"({"class":"C","method":"M","arguments":[["a","b\u00ff"]]})";
    const auto status = [&](const Client &client, const std::string &method, const std::string &target,
                            const std::string &body = "", const std::string &host = "localhost:1") {
        const auto response = api.answer({method, target, host, body}, client, 1);
        return response ? response->status : 0; // 0: later
    };
    EXPECT_EQ(status(root, "GET", "/metrics"), 503) << "before the first pass";
    api.show(odd());
    for (const char *target : {"/", "/metrics", "/healthz", "/api/v1/filesystems", "/api/v1/alerts", "/?x=1"})
        for (const Client &client : {root, user, tcp, local}) {
            EXPECT_EQ(status(client, "GET", target), 200) << target;
            EXPECT_EQ(status(client, "POST", target), 405) << target;
        }
    EXPECT_EQ(status(user, "GET", "/api/v1/state"), 200);
    EXPECT_EQ(status(tcp, "GET", "/api/v1/state"), 404);
    EXPECT_EQ(status(tcp, "GET", "/nothing"), 404);
    EXPECT_EQ(status(local, "GET", "/", "", "evil.example:9633"), 421) << "a name that was made to lead here";
    EXPECT_EQ(status(local, "GET", "/", "", "[::1]:9633"), 200);
    EXPECT_EQ(status(tcp, "GET", "/", "", "server.example:9633"), 200);
    for (const Client &client : {tcp, local})
        EXPECT_EQ(status(client, "POST", "/api/v1/call", call), 404);
    EXPECT_EQ(status(user, "POST", "/api/v1/call", call), 403);
    EXPECT_EQ(status(user, "POST", "/api/v1/reload"), 403);
    EXPECT_EQ(status(root, "GET", "/api/v1/call"), 405);
    for (const char *wrong : {"", "[]", "{\"class\":1}", "{\"class\":\"\u4e00\",\"method\":\"M\",\"arguments\":[]}"})
        EXPECT_EQ(status(root, "POST", "/api/v1/call", wrong), 400) << wrong;
    EXPECT_EQ(status(root, "POST", "/api/v1/call", R"({"class":"C","method":"StopMonitoringThread","arguments":[]})"),
              409);
    EXPECT_THAT(ordered, IsEmpty());
    EXPECT_EQ(status(root, "POST", "/api/v1/call", call), 0);
    EXPECT_EQ(status(root, "POST", "/api/v1/reload"), 0);
    EXPECT_THAT(ordered, ElementsAre("C.M", "a=b\xff", "reload"));
}

// The server in a directory of its own, polled by the test, with clients of every bad kind.
class MonitorServer : public ::testing::Test {
  protected:
    void SetUp() override {
        char name[] = "/tmp/oxtmonitorXXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        directory_ = name;
        file_ = std::make_unique<SocketFile>(directory_);
        server_.listenOn(file_->get());
    }
    void TearDown() override {
        file_.reset();
        EXPECT_TRUE(std::filesystem::is_empty(directory_));
        std::filesystem::remove_all(directory_);
    }
    void poll(int times = 1) {
        for (int i = 0; i < times; ++i) {
            std::vector<pollfd> polled;
            server_.addTo(polled);
            ::poll(polled.data(), polled.size(), 0);
            server_.handle(polled, 0);
        }
    }
    Fd client(const std::string &text = "") {
        Fd socket = connectTo(directory_);
        EXPECT_TRUE(socket);
        if (!text.empty()) {
            EXPECT_EQ(send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
        }
        return socket;
    }
    // The status line's number; 0 when the connection was closed without one, -1 when nothing has come.
    static int statusAt(const Fd &socket) {
        char text[64] = {};
        const ssize_t got = recv(socket.get(), text, sizeof text - 1, MSG_DONTWAIT);
        return got < 0 ? errno == EAGAIN ? -1 : 0 : got == 0 ? 0 : std::atoi(text + std::strlen("HTTP/1.1 "));
    }
    std::string directory_;
    std::string lastTarget_;
    HttpServer server_{[this](const HttpRequest &request, const Client &, HttpServer::Id id) {
        lastTarget_ = request.target;
        lastId_ = id;
        HttpResponse response;
        response.body = std::make_shared<std::string>(request.target == "/large" ? 8 * 1024 * 1024 : 10, 'x');
        return request.target == "/later" ? std::nullopt : std::optional(response);
    }};
    HttpServer::Id lastId_ = 0;
    std::unique_ptr<SocketFile> file_;
    const std::string get_ = "GET / HTTP/1.1\r\nHost: a\r\n\r\n";
};

TEST_F(MonitorServer, brokenAndOversizedRequestsAreRefused) {
    const std::string post = "POST / HTTP/1.1\r\nHost: a\r\n";
    const struct {
        std::string text;
        int status; // -1: it waits for the rest
    } cases[] = {
        {get_, 200},
        {"GET / HTTP/1.0\r\n\r\n", 200},
        {get_.substr(0, get_.size() - 2), -1},
        {"rubbish\r\n\r\n", 400},
        {std::string("\0\xff\r\n", 4), 400},
        {"GET http://elsewhere/ HTTP/1.1\r\n\r\n", 400},
        {"GET / HTTP/1.1\r\nA: " + std::string(9000, 'b') + "\r\n\r\n", 431},
        {"GET /" + std::string(9000, 'b'), 431},
        {post + "Content-Length: 70000\r\n\r\n", 413},
        {post + "Content-Length: 99999999999999999999\r\n\r\n", 400},
        {post + "Content-Length: 1\r\nContent-Length: 2\r\n\r\nxx", 400},
        {post + "Transfer-Encoding: chunked\r\n\r\n2\r\nxx\r\n0\r\n\r\n", 200},
        {post + "Transfer-Encoding: chunked\r\n\r\nfffffffff\r\n", 413},
        {post + "Transfer-Encoding: chunked\r\n\r\nx\r\n", 400},
        {post + "Content-Length: 2\r\n\r\nx", -1},
    };
    for (const auto &row : cases) {
        const Fd socket = client(row.text);
        poll(4);
        EXPECT_EQ(statusAt(socket), row.status) << row.text.substr(0, 80);
    }
    Fd slow = client();
    for (const char byte : get_) {
        EXPECT_EQ(statusAt(slow), -1);
        send(slow.get(), &byte, 1, 0);
        poll(2);
    }
    EXPECT_EQ(statusAt(slow), 200) << "byte by byte";
}

TEST_F(MonitorServer, aCrowdLeavesRoomForTheNextAndHoldsNobodyUp) {
    const Fd silent = client();
    poll();
    ASSERT_TRUE(server_.nextDeadline());
    EXPECT_LE(*server_.nextDeadline(), seconds(15)) << "nobody stays for ever";
    std::vector<Fd> crowd; // that says nothing, or half of something, or reads nothing
    for (int i = 0; i < 200; ++i, poll())
        crowd.push_back(client(i % 3 == 0 ? "" : i % 3 == 1 ? "GET / HT" : "GET /large HTTP/1.1\r\n\r\n"));
    poll(20);
    EXPECT_LE(server_.connections(), 64u);
    const Fd next = client(get_);
    poll(2);
    EXPECT_EQ(statusAt(next), 200);
    const Fd later = client("GET /later HTTP/1.1\r\n\r\n");
    poll(2);
    EXPECT_EQ(lastTarget_, "/later");
    const auto id = lastId_;
    for (int i = 0; i < 200; ++i, poll())
        crowd.push_back(client("GET / HT"));
    server_.answer(id, errorResponse(404, "x"));
    EXPECT_EQ(statusAt(later), 404) << "whoever waits for the provider does not give way";
    server_.answer(id, errorResponse(404, "x"));
    server_.answer(12345, errorResponse(404, "x"));
}

TEST_F(MonitorServer, aSocketIsMadeSafely) {
    EXPECT_THAT(problemOf([this] { SocketFile{directory_}; }), HasSubstr("a monitor is running"));
    const std::string other = directory_ + "/" + std::string(150, 'd'); // longer than an address
    std::filesystem::create_directory(other);
    {
        SocketFile dead(other);
        const SocketFile moved(std::move(dead));
        EXPECT_TRUE(connectTo(other));
        std::filesystem::rename(other + "/oxtfs.sock", other + "/kept");
    }
    std::filesystem::rename(other + "/kept", other + "/oxtfs.sock");
    EXPECT_FALSE(connectTo(other)) << "nobody listens any more";
    {
        const SocketFile replaced(other);
        EXPECT_TRUE(connectTo(other));
        EXPECT_EQ(std::filesystem::status(other + "/oxtfs.sock").permissions(), std::filesystem::perms(0666));
    }
    std::filesystem::permissions(other, std::filesystem::perms(0777));
    EXPECT_THAT(problemOf([&] { SocketFile{other}; }), HasSubstr("others can write"));
    std::filesystem::remove_all(other);
}

TEST(MonitorNotify, speaksToTheServiceManager) {
    char name[] = "/tmp/oxtnotifyXXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    const std::string path = std::string(name) + "/socket";
    const Fd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0));
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const void *where = &address;
    ASSERT_EQ(bind(socket.get(), static_cast<const sockaddr *>(where), sizeof address), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    setenv("WATCHDOG_USEC", "60000000", 1);
    notifyManager("READY=1");
    EXPECT_EQ(watchdogPeriod(), std::chrono::microseconds(seconds(60)));
    setenv("WATCHDOG_PID", "1", 1);
    EXPECT_FALSE(watchdogPeriod()) << "another process is watched";
    for (const char *variable : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
        unsetenv(variable);
    notifyManager("STATUS=nobody listens");
    char text[64] = {};
    EXPECT_EQ(recv(socket.get(), text, sizeof text, 0), 7);
    EXPECT_STREQ(text, "READY=1");
    std::filesystem::remove_all(name);
}

TEST(MonitorProgram, isBoundedInTimeAndNumber) {
    std::vector<std::string> said;
    AlertProgram program([&](const std::string &line) { said.push_back(line); });
    char name[] = "/tmp/oxtprogramXXXXXX";
    ASSERT_NE(mkdtemp(name), nullptr);
    const std::string out = std::string(name) + "/out";
    program.use(
        {"/bin/sh", "-c", "printf '%s.' \"$OXTFS_MOUNTPOINT\" $(readlink /proc/self/fd/0) >>" + out + "; exit 3"});
    for (int i = 0; i < 100; ++i)
        program.run({{"OXTFS_MOUNTPOINT", "/$(id)\n\xff"}});
    EXPECT_EQ(said.size(), 100u - 4 - 64) << "the oldest of too many are left out";
    said.clear();
    for (int i = 0; i < 2000 && program.isBusy(); ++i, std::this_thread::sleep_for(milliseconds(10)))
        program.look();
    EXPECT_FALSE(program.isBusy());
    EXPECT_THAT(said, ::testing::Each(HasSubstr("ended with 3.")));
    EXPECT_EQ(said.size(), 68u);
    EXPECT_THAT(fileContent(out), ::testing::StartsWith("/$(id)\n\xff./dev/null."));
    program.use({"/nonexistent"});
    program.run({});
    EXPECT_THAT(said.back(), HasSubstr("cannot run /nonexistent"));
    program.use({"/bin/sleep", "100"});
    const auto begin = std::chrono::steady_clock::now();
    program.run({});
    program.look();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(50)) << "nothing waits for it";
    std::filesystem::remove_all(name);
}

} // namespace
