// What a monitor answers, to whom, and the bounds of its connections.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <regex>

#include "api.h"
#include "failure.h"
#include "golden.h"
#include "monitorSamples.h"
#include "monitorState.h"
#include "page.h"
#include "shownText.h"
#include "socketFile.h"
#include "viewText.h"

namespace {

using namespace oxttool;
using std::chrono::seconds;
using ::testing::HasSubstr;

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

TEST(MonitorAnswers, HostileNamesStayNames) {
    const ViewPointer view = odd();
    EXPECT_THAT(pageText(*view, false, "abc"), HasSubstr("role=\"alert\">The monitor's looks"));
    EXPECT_THAT(metricsText(*view, false), HasSubstr("oxtfs_monitor_up 0\n"));
    const MonitorState told = parseState(stateText(*view, true));
    EXPECT_EQ(told.fileSystems[0].mountPoint, view->fileSystems[0].mountPoint) << "every byte of it";
    EXPECT_EQ(told.fileSystems[0].outlook->warningBy, "by hand");
    EXPECT_EQ(told.fileSystems[0].outlook->forecast->secondsToFull, 9000);
    EXPECT_FALSE(told.fileSystems[1].outlook->forecast);
    EXPECT_EQ(told.cycle.greatest, 3600u);
    EXPECT_EQ(told.passes, 3u);
    EXPECT_EQ(told.alerts, view->alerts);
    EXPECT_EQ(told.process, getpid());
    EXPECT_EQ(told.failing, "");
    EXPECT_THAT(parseState(stateText(*view, false)).failing, HasSubstr("no pass has ended since 1970"));
    EXPECT_THAT(problemOf([] { parseState("{}"); }), HasSubstr("another language"));
}

// The heads, the page without its frame and the lists of an invented moment.
TEST(MonitorAnswers, InFull) {
    View view = *odd();
    view.updated = 1000000000;
    view.fileSystems.push_back(fileSystem("/none", 0, 0));
    view.fileSystems.push_back(fileSystem("/full", 1000, 5));
    view.fileSystems.back().status = 3;
    view.curves = {minutes(100, [](int ago) { return 250 + 5 * ago; }), minutes(3, [](int) { return 900; }), {}, {}};
    view.curves[1][0].time -= History::kDay + 600; // out of sight, and a gap behind it
    view.alerts.push_back(R"({"event":"fileSystemCountChanged","time":"T2"})");
    HttpResponse page;
    page.type = "text/html";
    page.nonce = "abc";
    page.body = std::make_shared<std::string>(pageText(view, true, page.nonce));
    EXPECT_EQ(page.body->find("{{"), std::string::npos);
    const std::size_t begin = page.body->find("<h1>"), end = page.body->rfind("</table>");
    char machine[256] = "";
    ASSERT_EQ(gethostname(machine, sizeof machine - 1), 0);
    std::string text = page.body->substr(begin, end - begin) + "\n" + alertsText(view) + fileSystemsText(view) +
                       *errorResponse(404, "\xff").body;
    text.replace(text.find(machine), std::strlen(machine), "HOST");
    page.body = std::make_shared<std::string>("12345");
    text += headOf(page) + headOf(errorResponse(503, ""));
    text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
    expectGolden("answers.txt", text);
    const std::string answer = headOf(page) + *page.body;
    EXPECT_EQ(parseAnswer(answer)->status, 200);
    EXPECT_EQ(parseAnswer(answer)->body, "12345");
    EXPECT_FALSE(parseAnswer(answer.substr(0, answer.size() - 1)));
    RequestReader reader;
    EXPECT_EQ(reader.put(requestText("POST", "/a", "b")), RequestReader::Complete);
    const HttpRequest &request = reader.request();
    EXPECT_EQ(request.method + request.target + request.host + request.body, "POST/alocalhostb");
}

// The status and type of the answer, for each of the clients that are named, and what the provider is asked to do.
TEST(MonitorAnswers, WhoMayAskWhat) {
    std::string asked;
    Api api({[&](HttpServer::Id, const ProviderWorker::MethodCall &call) {
                 asked += ": " + call.className + "." + call.method;
                 for (const auto &[name, text] : call.arguments)
                     asked += " " + name + "=" + printable(text);
             },
             [&](HttpServer::Id) { asked += ": reload"; }});
    const std::map<std::string, Client> known = {
        {"root", {true, false, false}}, {"user", {}}, {"tcp", {false, true, false}}, {"local", {false, true, true}}};
    char machine[256] = "";
    ASSERT_EQ(gethostname(machine, sizeof machine - 1), 0);
    expectReplay("requestsOfClients.txt", [&](const std::string &line) {
        std::istringstream words(line);
        std::string clients, text;
        HttpRequest request;
        words >> clients >> request.method >> request.target >> request.host;
        std::getline(words >> std::ws, request.body);
        if (clients == "pass") {
            auto view = std::make_shared<View>(*odd());
            view->passes.failing = request.method;
            api.show(view);
        }
        request.host = std::regex_replace(request.host, std::regex("MACHINE"), machine);
        std::istringstream each(std::regex_replace(clients, std::regex(","), " "));
        for (std::string client; clients != "pass" && each >> client; asked.clear()) {
            const auto response = api.answer(request, known.at(client), 1);
            text += client + " " + (response ? std::to_string(response->status) + " " + response->type : "later");
            text += asked + (response && request.target == "/healthz" ? ": " + *response->body : "\n");
        }
        return text;
    });
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
    Client lastClient_;
    HttpServer server_{[this](const HttpRequest &request, const Client &client, HttpServer::Id id) {
        lastClient_ = client;
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

// Each line of the script is a request: "|" ends a line of it, "<9000>" stands for so many bytes. The answer is a
// status, -1 while the server waits for the rest.
TEST_F(MonitorServer, BrokenAndOversizedRequestsAreRefused) {
    expectReplay("brokenRequests.txt", [this](const std::string &line) {
        std::string text = std::regex_replace(line, std::regex("\\|"), "\r\n");
        text = std::regex_replace(text, std::regex("<9000>"), std::string(9000, 'b'));
        const Fd socket = client(unprintable(text));
        poll(4);
        return std::to_string(statusAt(socket)) + "\n";
    });
    Fd slow = client();
    for (const char byte : get_) {
        EXPECT_EQ(statusAt(slow), -1);
        send(slow.get(), &byte, 1, 0);
        poll(2);
    }
    EXPECT_EQ(statusAt(slow), 200) << "byte by byte";
}

TEST_F(MonitorServer, ACrowdLeavesRoomForTheNextAndHoldsNobodyUp) {
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

TEST_F(MonitorServer, EachStateHasItsTime) {
    const Fd later = client("GET /later HTTP/1.1\r\n\r\n");
    poll(3);
    EXPECT_GT(*server_.nextDeadline(), seconds(60)) << "a change may take long";
    server_.answer(lastId_, {});
    EXPECT_LE(*server_.nextDeadline(), seconds(15));
    EXPECT_EQ(statusAt(later), 200);
    const Fd head = client("HEAD / HTTP/1.1\r\n\r\n");
    poll(3);
    char text[2048] = {};
    EXPECT_GT(recv(head.get(), text, sizeof text - 1, MSG_DONTWAIT), 0);
    EXPECT_THAT(text, ::testing::AllOf(HasSubstr("\r\nContent-Length: 10\r\n"), ::testing::EndsWith("\r\n\r\n")));
}

// The host's name is looked at where a connection arrives over loopback, whatever address is listened at.
TEST_F(MonitorServer, WhoComesOverLoopbackIsKnown) {
    ifaddrs *all = nullptr;
    ASSERT_EQ(getifaddrs(&all), 0);
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs *)> owned(all, freeifaddrs);
    in_addr outer = {}; // an address of this machine that others reach, too; none in a network namespace
    for (; all != nullptr; all = all->ifa_next)
        if (all->ifa_addr != nullptr && all->ifa_addr->sa_family == AF_INET && !(all->ifa_flags & IFF_LOOPBACK)) {
            sockaddr_in four = {};
            std::memcpy(&four, all->ifa_addr, sizeof four);
            outer = four.sin_addr;
        }
    const struct {
        const char *listening, *asked; // no address: the outer one
        bool loopback;
    } rows[] = {{"127.0.0.1", "127.0.0.1", true},        {"0.0.0.0", "127.0.0.1", true}, {"0.0.0.0", nullptr, false},
                {"::ffff:127.0.0.1", "127.0.0.1", true}, {"::", "127.8.0.1", true},      {"::", nullptr, false}};
    for (const auto &row : rows) {
        if (row.asked == nullptr && outer.s_addr == 0)
            continue;
        Fd listener;
        try {
            listener = listenTcp(row.listening, 0);
        } catch (const Failure &) {
            ASSERT_EQ(row.listening[0], ':') << "only IPv6 may be missing";
            continue;
        }
        sockaddr_in6 bound = {}; // the port stands where IPv4 has it
        socklen_t size = sizeof bound;
        ASSERT_EQ(getsockname(listener.get(), static_cast<sockaddr *>(static_cast<void *>(&bound)), &size), 0);
        server_.listenOnTcp(std::move(listener));
        sockaddr_in four = {};
        four.sin_family = AF_INET;
        four.sin_port = bound.sin6_port;
        four.sin_addr = outer;
        if (row.asked != nullptr)
            inet_pton(AF_INET, row.asked, &four.sin_addr);
        const Fd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(connect(socket.get(), static_cast<sockaddr *>(static_cast<void *>(&four)), sizeof four), 0);
        send(socket.get(), get_.data(), get_.size(), 0);
        lastClient_ = {};
        poll(4);
        EXPECT_TRUE(lastClient_.overTcp);
        EXPECT_EQ(lastClient_.overLoopback, row.loopback) << row.listening << (row.asked ? row.asked : " from outside");
        server_.closeTcp();
    }
}

TEST_F(MonitorServer, ASocketIsMadeSafely) {
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
        const Fd client = connectTo(other);
        for (const int wait : {SO_SNDTIMEO, SO_RCVTIMEO}) { // for a monitor that is stopped and will not answer
            timeval patience = {};
            socklen_t size = sizeof patience;
            EXPECT_EQ(getsockopt(client.get(), SOL_SOCKET, wait, &patience, &size), 0);
            EXPECT_EQ(patience.tv_sec, 10);
        }
        EXPECT_EQ(std::filesystem::status(other + "/oxtfs.sock").permissions(), std::filesystem::perms(0666));
    }
    std::filesystem::permissions(other, std::filesystem::perms(0777));
    EXPECT_THAT(problemOf([&] { SocketFile{other}; }), HasSubstr("others can write"));
    std::filesystem::remove_all(other);
}

} // namespace
