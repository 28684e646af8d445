// The command-line tool's own parts: what users write and what they are shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <iomanip>
#include <map>
#include <regex>

#include <nlohmann/json.hpp>

#include "alertText.h"
#include "columns.h"
#include "failure.h"
#include "golden.h"
#include "json.h"
#include "jsonSchema.h"
#include "outlook.h"
#include "passSigns.h"
#include "prometheus.h"
#include "screen.h"
#include "sharedMemory.h"
#include "shownText.h"
#include "shownTraceLine.h"
#include "table.h"
#include "values.h"

namespace {

using namespace oxttool;
using nlohmann::json;
using ::testing::HasSubstr;

FileSystem sample() {
    FileSystem fs;
    fs.index = "7";
    fs.device = "/dev/sdb1";
    fs.mountPoint = "/data";
    fs.type = "xfs";
    fs.driveType = 0;
    fs.monitored = 1;
    fs.status = 2;
    fs.sizeMiB = 4294967295;
    fs.freeMiB = 1073741824;
    fs.warningMiB = 2147483648;
    fs.fatalMiB = 1;
    return fs;
}

// What the program for an alert gets, of a file system that is full in an hour.
std::string variables(const std::string &alertLine) {
    View view;
    view.fileSystems = {FileSystem(), sample()};
    view.fileSystems[1].outlook = Outlook{Forecast{1, 3599.6}, "", "", ""};
    std::string text;
    for (const auto &[name, value] : variablesOf(*parseAlert(alertLine), &view))
        text += (text.empty() ? "" : "\n") + name + "='" + value + "'";
    return text;
}

// The alert of a status that has become another, where no file tells it.
std::string changes(int was, int is) {
    FileSystem before = sample(), after = sample();
    before.status = was;
    after.status = is;
    std::string text = "none";
    for (const Alert &alert : changesOfStatus({before}, {after}, 0))
        text = textOf(jsonOf(alert, Unit::MiB));
    return text;
}

// In colour (ESC begins one), and as JSON.
std::string traceLine(const std::string &line) {
    Look look;
    EXPECT_EQ(shownTraceLine(line, look), printable(line));
    look.colour = true;
    const std::string coloured = shownTraceLine(line, look);
    look.json = true;
    return std::regex_replace(coloured, std::regex("\033"), "ESC") + "\n" + shownTraceLine(line, look);
}

// What users write and what they are shown, and the words for what is none of it.
TEST(ToolValues, InARow) {
    expectReplay("values.txt", [](const std::string &line) {
        std::istringstream words(line);
        std::string kind, text, more;
        words >> kind >> std::quoted(text) >> more;
        const std::map<std::string, std::function<std::string()>> kinds = {
            {"amount", [&] { return std::to_string(parseAmount(text).of(std::stoull(more))); }},
            {"index", [&] { return std::to_string(parseNumber(text, 1, 65535, "an index")); }},
            {"mode",
             [&] {
                 const oxthost::ServiceMode mode = parseServiceMode(text);
                 return mode.kind == oxthost::ServiceMode::Byte ? std::to_string(mode.byte) : "no instance";
             }},
            {"space",
             [&] {
                 const Unit unit = more == "MiB" ? Unit::MiB : more == "bytes" ? Unit::Bytes : Unit::Human;
                 return formatSpace(std::stoull(text), unit);
             }},
            {"status", [&] { return std::string(statusName(std::stoll(text))); }},
            {"alert",
             [&]() -> std::string {
                 const auto alert = parseAlert(line.substr(kind.size() + 1));
                 if (!alert)
                     return "none";
                 EXPECT_EQ(JsonSchema().problem("alert", json::parse(textOf(jsonOf(*alert, Unit::MiB)))), "");
                 const std::string status = alert->newStatus ? statusName(*alert->newStatus) : "no";
                 return status + " status of '" + alert->device + "' on '" + alert->mountPoint + "': " +
                        textOf(Json{alert->freeMiB.value_or(0), alert->sizeMiB.value_or(0),
                                    alert->thresholdMiB.value_or(0)});
             }},
            {"change", [&] { return changes(std::stoi(text), std::stoi(more)); }},
            {"exec", [&] { return variables(line.substr(kind.size() + 1)); }},
            {"trace", [&] { return traceLine(unprintable(line.substr(6))); }},
            {"drive", [&] { return std::string(driveName(std::stoll(text))); }},
            {"time", [&] { return spokenTime(std::stod(text)); }},
            {"shown", [&] { return printable(unprintable(text)); }},
            {"utf8", [&] { return printableUtf8(unprintable(text)); }},
            {"line", [&] { return printableLine(unprintable(text)); }},
            {"word", [&] { return shellWord(text); }},
            {"failure", [&] { return explainedFailure(text); }},
            {"memory", [&] { return std::string(noSharedMemory(std::stoi(text)).what()); }},
        };
        try {
            return kinds.at(kind)() + "\n";
        } catch (const Failure &failure) {
            EXPECT_EQ(failure.exitCode, Exit::Usage) << line;
            const std::string problem = failure.what(); // and behind it, what to do
            return problem.substr(0, problem.find('\n')) + "\n";
        }
    });
    EXPECT_FALSE(parseAlert("{\"a\":\xff\"}"));
    EXPECT_FALSE(parseAlert("{\"device\":\"\xff\"}"));
}

// The rows between the headings and what can be pressed.
TEST(ToolShow, TheScreenShowsTheWorstWhereNotAllFit) {
    View view;
    for (unsigned i = 1; i <= 9; ++i) {
        FileSystem fs;
        fs.index = std::to_string(i);
        fs.mountPoint = "/" + fs.index;
        fs.sizeMiB = 1000;
        fs.freeMiB = 100 * i;
        fs.monitored = 1;
        fs.status = i == 7 ? 3 : 1;
        view.fileSystems.push_back(fs);
    }
    EXPECT_EQ(freePercent(view.fileSystems[0]), "10%");
    Look look;
    look.columns = {"mountpoint"};
    ScreenState state;
    state.recent = {"older", "newer"};
    const auto shown = [&](std::size_t rows) {
        const std::string text = screenOf(view, look, "now", rows, state);
        EXPECT_LE(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')), rows);
        std::string table = text.substr(text.find("MOUNTPOINT\n") + 11);
        return std::regex_replace(table, std::regex("\n+"), " ");
    };
    EXPECT_EQ(shown(17), "/1 /2 /3 /4 /5 /6 /7 /8 /9 in the order of the mount table. q ends, s sorts. older newer ");
    EXPECT_EQ(shown(10), "/7 /1 /2 /3 1 to 4 of 9, worst first. q ends, s sorts, arrows scroll. ");
    state.first = 99;
    EXPECT_EQ(shown(10), "/5 /6 /8 /9 6 to 9 of 9, worst first. q ends, s sorts, arrows scroll. ");
    EXPECT_EQ(state.first, 5U);
}

TEST(ToolShow, MetricsAreEscapedAndWellFormed) {
    FileSystem odd = sample(), plain, twin;
    odd.device = "a\\b\"c\nd\xff";
    odd.mountPoint = "/m\u00e9 {x=\"y\"}";
    plain.index = "1";
    plain.status = 3;
    odd.outlook = Outlook{Forecast{3600, 9000}, "", "", ""};
    twin = odd;      // of the same names: the worse one shows, however it stands
    twin.status = 7; // unknown
    twin.freeMiB = 1;
    odd.status = 2;
    const std::string text =
        prometheusText({{twin, plain, odd, twin}, 60, 1893456000.25, true, 1893456000, {{5, 2, .5}}});
    expectGolden("metrics.txt", text);
    EXPECT_EQ(prometheusText({}).find('{'), std::string::npos);
    EXPECT_THAT(prometheusText({}), HasSubstr("\noxtfs_monitor_up 0\n")) << "a look on the spot is no monitor";
    EXPECT_EQ(prometheusText({}).find("success_"), std::string::npos);
    EXPECT_EQ(std::system("! command -v promtool >/dev/null || promtool check metrics <" OXT_TEST_SOURCE_DIR
                          "golden/metrics.txt"),
              0);
}

} // namespace
