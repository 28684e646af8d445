#include "traceLine.h"

#include <charconv>
#include <string_view>

namespace oxttool {

namespace {

constexpr std::string_view kFailureWords[] = {"Failure!!", "Failre!!"}; // the second is a line that is written so
constexpr std::string_view kTimeForm = "0000-00-00T00:00:00.000Z";

// Takes the next word off the rest; empty when no space follows it.
std::string_view nextWord(std::string_view &rest) {
    const std::size_t space = rest.find(' ');
    if (space == std::string_view::npos)
        return {};
    const std::string_view word = rest.substr(0, space);
    rest.remove_prefix(space + 1);
    return word;
}

bool isNumber(std::string_view word, int &number) {
    const char *end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data(), end, number);
    return !word.empty() && parsed.ec == std::errc() && parsed.ptr == end;
}

bool isTime(std::string_view word) {
    if (word.size() != kTimeForm.size())
        return false;
    for (std::size_t i = 0; i < word.size(); ++i)
        if (kTimeForm[i] == '0' ? word[i] < '0' || word[i] > '9' : word[i] != kTimeForm[i])
            return false;
    return true;
}

} // namespace

bool TraceLine::isFailure() const {
    if (parsed && level != kFailureLevel)
        return false;
    for (const std::string_view word : kFailureWords)
        if (text.find(word) != std::string::npos)
            return true;
    return false;
}

TraceLine parseTraceLine(const std::string &line) {
    TraceLine parsed;
    std::string_view rest = line;
    const std::string_view time = nextWord(rest);
    const bool numbers = isNumber(nextWord(rest), parsed.process) && isNumber(nextWord(rest), parsed.thread) &&
                         isNumber(nextWord(rest), parsed.level);
    const std::string_view point = nextWord(rest);
    const std::size_t colon = point.rfind(':');
    if (!isTime(time) || !numbers || colon == std::string_view::npos ||
        !isNumber(point.substr(colon + 1), parsed.sourceLine)) {
        TraceLine foreign;
        foreign.text = line;
        return foreign;
    }
    parsed.parsed = true;
    parsed.time = time;
    parsed.function = point.substr(0, colon);
    parsed.text = rest;
    return parsed;
}

} // namespace oxttool
