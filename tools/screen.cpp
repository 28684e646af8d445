#include "screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

#include "grid.h"
#include "shownText.h"
#include "values.h"

namespace oxttool {

namespace {

constexpr std::size_t kRecentLines = 10;
constexpr std::size_t kUsualRows = 24; // where the terminal does not tell
constexpr std::size_t kFewestRows = 3; // of the table, however small the terminal is

// What s goes through.
struct Order {
    const char *by, *word;
};
constexpr Order kOrders[] = {
    {"", "in the order of the mount table"}, {"worst", "worst first"}, {"freepercent", "by free share"}};

const Order &orderOf(const std::string &by) {
    const auto known =
        std::find_if(std::begin(kOrders), std::end(kOrders), [&by](const Order &order) { return by == order.by; });
    return known != std::end(kOrders) ? *known : kOrders[0];
}

std::vector<std::string> linesOf(const std::string &text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0, end = 0; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
        lines.push_back(text.substr(at, end - at));
    return lines;
}

// A line that a terminal would break would push the table off it.
std::string fitted(const std::string &line, const Look &look) {
    return look.width != 0 ? shortened(line, look.width) : line;
}

std::size_t rowsOfTerminal() {
    winsize size = {};
    return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : kUsualRows;
}

} // namespace

std::string screenOf(const View &view, const Look &look, const std::string &now, std::size_t rows, ScreenState &state) {
    std::vector<std::string> head;
    if (!look.machine.empty())
        head.push_back(printable(machineLabel(look)));
    head.push_back("Pass " + std::to_string(view.passes.succeeded + view.passes.failed) + " at " + now + ", every " +
                   std::to_string(view.cycle.seconds) + " s. Ctrl-C ends.");
    head.emplace_back();

    const std::size_t all = view.fileSystems.size();
    const std::size_t taken = head.size() + 1 + 2 + 1; // headings, what is shown and an empty line, the cursor's line
    const bool fits = taken + all <= rows;
    Look sorted = look;
    sorted.sort = state.sort.empty() && !fits ? "worst" : state.sort;
    std::vector<FileSystem> ordered = view.fileSystems;
    sortFileSystems(ordered, sorted.sort);
    const std::vector<std::string> table = linesOf(tableOf(ordered, sorted));
    const std::size_t room = std::max(rows > taken ? rows - taken : 0, kFewestRows);
    state.first = std::min(state.first, all > room ? all - room : 0);
    const std::size_t last = std::min(state.first + room, all);

    std::string text;
    for (const std::string &line : head)
        text += fitted(line, look) + "\n";
    text += table.front() + "\n";
    for (std::size_t i = state.first; i < last; ++i)
        text += table.at(i + 1) + "\n";
    const std::string shown =
        fits ? ""
             : std::to_string(state.first + 1) + " to " + std::to_string(last) + " of " + std::to_string(all) + ", ";
    text += fitted(shown + orderOf(sorted.sort).word + ". q ends, s sorts" + (fits ? "." : ", arrows scroll."), look) +
            "\n\n";
    const std::size_t used = taken + (last - state.first);
    const std::size_t said = std::min(state.recent.size(), rows > used ? rows - used : 0);
    for (std::size_t i = state.recent.size() - said; i < state.recent.size(); ++i)
        text += fitted(state.recent[i], look) + "\n";
    return text;
}

Screen::Screen(const Look &look) : look_(look) {
    state_.sort = look.sort;
    if (!isatty(STDIN_FILENO) || tcgetattr(STDIN_FILENO, &before_) != 0)
        return;
    termios keys = before_;
    keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    keys.c_cc[VMIN] = 0;
    keys.c_cc[VTIME] = 0;
    takesKeys_ = tcsetattr(STDIN_FILENO, TCSANOW, &keys) == 0;
}

Screen::~Screen() {
    if (takesKeys_)
        tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

void Screen::show(const View &view) {
    view_ = view;
    shown_ = true;
    draw();
}

void Screen::say(const std::string &line) {
    state_.recent.push_back(line);
    if (state_.recent.size() > kRecentLines)
        state_.recent.pop_front();
    if (shown_) {
        draw();
    } else {
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
    }
}

bool Screen::press() {
    char keys[64];
    const ssize_t got = read(STDIN_FILENO, keys, sizeof keys);
    if (got <= 0)
        takesKeys_ = got < 0; // an ended input has no more
    const std::string pressed(keys, got > 0 ? static_cast<std::size_t>(got) : 0);
    bool ended = false;
    for (std::size_t i = 0; i < pressed.size() && !ended; ++i) {
        ended = pressed[i] == 'q';
        if (pressed[i] == 's') {
            const Order *next = &orderOf(state_.sort) + 1;
            state_.sort = next != std::end(kOrders) ? next->by : "";
        } else if (pressed.compare(i, 3, "\033[A") == 0 || pressed.compare(i, 3, "\033OA") == 0) {
            state_.first -= state_.first > 0;
        } else if (pressed.compare(i, 3, "\033[B") == 0 || pressed.compare(i, 3, "\033OB") == 0) {
            ++state_.first; // no further than the last row, see screenOf
        }
    }
    if (shown_ && !pressed.empty())
        draw();
    return !ended;
}

void Screen::draw() {
    adaptToOutput(look_, stdout); // the window may have another size now
    const std::string text = screenOf(view_, look_, utcTime(std::time(nullptr)), rowsOfTerminal(), state_);
    std::printf("\033[H\033[2J%s", text.c_str());
    std::fflush(stdout);
}

} // namespace oxttool
