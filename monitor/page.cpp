#include "page.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "alertText.h"
#include "shownText.h"
#include "values.h"

namespace oxttool {

namespace {

constexpr std::size_t kAlertsShown = 20;
constexpr std::size_t kCurvePoints = 96;
constexpr int kCurveWidth = 192, kCurveHeight = 32;
constexpr unsigned kLeastRefresh = 10, kMostRefresh = 60; // seconds

std::string decimal(double value, int decimals = 1) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string whole(double value) {
    return decimal(value, 0);
}

double shareOf(std::uint64_t part, std::uint64_t all) {
    return all == 0 ? 0 : std::min(100.0, 100 * static_cast<double>(part) / static_cast<double>(all));
}

std::string space(std::uint64_t mib) {
    return formatSpace(mib, Unit::Human);
}

std::string cell(const std::string &label, const std::string &content, const std::string &look = "") {
    return "<td data-label=\"" + label + "\"" + (look.empty() ? "" : " class=\"" + look + "\"") + ">" + content +
           "</td>";
}

// The used share as a bar, and a mark where each threshold is reached.
std::string barOf(const FileSystem &fs) {
    const double used = 100 - shareOf(fs.freeMiB, fs.sizeMiB);
    const auto mark = [&](std::uint64_t threshold, const char *look) {
        const std::string x = decimal(100 - shareOf(threshold, fs.sizeMiB));
        return std::string("<line class=\"") + look + "\" x1=\"" + x + "\" x2=\"" + x + "\" y1=\"0\" y2=\"10\"/>";
    };
    return "<svg class=\"bar\" viewBox=\"0 0 100 10\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"" +
           whole(used) + " % used; warning at " + space(fs.warningMiB) + " free, fatal at " + space(fs.fatalMiB) +
           " free\"><rect class=\"track\" width=\"100\" height=\"10\"/><rect class=\"used\" width=\"" + decimal(used) +
           "\" height=\"10\"/>" + mark(fs.warningMiB, "mark") + mark(fs.fatalMiB, "mark last") + "</svg>";
}

// Free space over the last day, from 0 to the most that was free; broken where nobody measured.
std::string curveOf(const FileSystem &fs, const std::vector<Measurement> &points, double now, unsigned cycleSeconds) {
    if (points.size() < 2)
        return "";
    std::uint64_t most = 1;
    for (const Measurement &point : points)
        most = std::max(most, point.freeMiB);
    const auto longestGap = std::max<std::int64_t>(2 * History::kStep, 3 * std::int64_t{cycleSeconds});
    const std::size_t step = points.size() / kCurvePoints + 1;
    std::string path;
    const Measurement *before = nullptr;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const bool gap = i > 0 && points[i].time - points[i - 1].time > longestGap;
        if (!gap && i % step != 0 && i + 1 != points.size())
            continue;
        const double x = kCurveWidth * (1 - (now - static_cast<double>(points[i].time)) / History::kDay);
        const double y = kCurveHeight - (kCurveHeight - 2) * shareOf(points[i].freeMiB, most) / 100 - 1;
        path += (before == nullptr || gap ? "M" : "L") + decimal(std::max(x, 0.0)) + " " + decimal(y);
        before = &points[i];
    }
    const std::string box = std::to_string(kCurveWidth) + " " + std::to_string(kCurveHeight);
    return "<svg class=\"curve\" viewBox=\"0 0 " + box + "\" preserveAspectRatio=\"none\" role=\"img\" aria-label=\"" +
           "free space over the last day, now " + space(fs.freeMiB) + "\"><path class=\"line\" d=\"" + path +
           "\"/></svg>";
}

std::string rowOf(const View &view, std::size_t at) {
    const FileSystem &fs = view.fileSystems[at];
    const bool foreseen = fs.outlook && fs.outlook->forecast;
    const bool measured = fs.sizeMiB != 0;
    const std::string free = space(fs.freeMiB) + " (" + whole(shareOf(fs.freeMiB, fs.sizeMiB)) + " %)";
    const std::string status = statusName(fs.status);
    return "<tr class=\"" + status + "\"><th scope=\"row\">" + htmlText(fs.mountPoint) + "<small>" +
           htmlText(fs.device) + ", " + htmlText(fs.type) + "</small></th>" + cell("Status", status, "status") +
           cell("Free", measured ? free : "", "number") + cell("Size", measured ? space(fs.sizeMiB) : "", "number") +
           cell("Used", measured ? barOf(fs) : "") +
           cell("Full in", foreseen ? spokenTime(fs.outlook->forecast->secondsToFull) : "", "nowrap") +
           cell("Last day", curveOf(fs, view.curves[at], view.updated, view.cycle.seconds)) + "</tr>\n";
}

std::string tableOf(const View &view) {
    std::vector<std::size_t> order(view.fileSystems.size());
    std::iota(order.begin(), order.end(), 0);
    const auto rank = [&](std::size_t at) { // the worst first; unmeasured ones last
        const FileSystem &fs = view.fileSystems[at];
        return std::pair(-fs.status, fs.sizeMiB == 0 ? 101 : shareOf(fs.freeMiB, fs.sizeMiB));
    };
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return rank(a) < rank(b); });
    std::string text = "<table>\n<thead><tr><th scope=\"col\">Mounted on</th><th scope=\"col\">Status</th>"
                       "<th scope=\"col\" class=\"number\">Free</th><th scope=\"col\" class=\"number\">Size</th>"
                       "<th scope=\"col\">Used</th><th scope=\"col\">Full in</th><th scope=\"col\">Last day</th></tr>"
                       "</thead>\n<tbody>\n";
    for (const std::size_t at : order)
        text += rowOf(view, at);
    return text + "</tbody>\n</table>\n";
}

std::string alertsOf(const View &view) {
    std::string text = "<h2 id=\"alerts\">Last alerts</h2>\n";
    if (view.alerts.empty())
        return text + "<p>None.</p>\n";
    text +=
        "<table>\n<thead><tr><th scope=\"col\">Time</th><th scope=\"col\">Status</th><th scope=\"col\">What</th></tr>"
        "</thead>\n<tbody>\n";
    std::size_t shown = 0;
    for (auto line = view.alerts.rbegin(); line != view.alerts.rend() && shown < kAlertsShown; ++line) {
        const auto alert = parseAlert(*line);
        if (!alert)
            continue;
        ++shown;
        const std::string status = alert->newStatus ? statusName(*alert->newStatus) : "changed";
        text += "<tr>" + cell("Time", htmlText(alert->time), "nowrap") + cell("Status", status, "status " + status) +
                cell("What", htmlText(sentenceOf(*alert))) + "</tr>\n";
    }
    return text + "</tbody>\n</table>\n";
}

std::string summaryOf(const View &view) {
    const auto count = [&](std::int64_t status) {
        return std::count_if(view.fileSystems.begin(), view.fileSystems.end(),
                             [status](const FileSystem &fs) { return fs.status == status; });
    };
    const std::size_t all = view.fileSystems.size();
    std::string text = std::to_string(all) + (all == 1 ? " file system" : " file systems");
    for (const std::int64_t status : {3, 2})
        text += ", " + std::to_string(count(status)) + " " + statusName(status);
    return text + ". Measured at " + utcTime(static_cast<std::time_t>(view.updated)) + ", every " +
           std::to_string(view.cycle.seconds) + " s. <a href=\"#alerts\">Last alerts</a>";
}

void replaceAll(std::string &text, const std::string &place, const std::string &content) {
    for (std::size_t at = 0; (at = text.find(place, at)) != std::string::npos; at += content.size())
        text.replace(at, place.size(), content);
}

} // namespace

std::string htmlText(const std::string &text) {
    std::string safe;
    for (const char c : printableUtf8(text))
        switch (c) {
        case '&':
            safe += "&amp;";
            break;
        case '<':
            safe += "&lt;";
            break;
        case '>':
            safe += "&gt;";
            break;
        case '"':
            safe += "&quot;";
            break;
        case '\'':
            safe += "&#39;";
            break;
        default:
            safe += c;
        }
    return safe;
}

std::string freshNonce() {
    unsigned char bytes[16];
    std::string nonce;
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes))
        return nonce; // no script then; the page is whole without it
    for (const unsigned char byte : bytes) {
        char text[3];
        std::snprintf(text, sizeof text, "%02x", byte);
        nonce += text;
    }
    return nonce;
}

std::string pageText(const View &view, bool well, const std::string &nonce) {
    char host[256] = "";
    (void)gethostname(host, sizeof host - 1);
    const std::string title = "File systems of " + htmlText(host);
    std::string content = "<h1>" + title + "</h1>\n<p>" + summaryOf(view) + "</p>\n";
    if (!well)
        content += "<p class=\"problem\" role=\"alert\">The monitor's looks at the file systems fail" +
                   (view.passes.failing.empty() ? "." : ": " + htmlText(view.passes.failing)) + "</p>\n";
    content += tableOf(view) + alertsOf(view);
    std::string page = kPageFrame;
    replaceAll(page, "{{nonce}}", nonce);
    replaceAll(page, "{{title}}", title);
    replaceAll(page, "{{seconds}}", std::to_string(std::clamp(view.cycle.seconds, kLeastRefresh, kMostRefresh)));
    // Last: nothing in it is looked at again.
    const std::string place = "{{content}}";
    return page.replace(page.find(place), place.size(), content);
}

} // namespace oxttool
