#include "traceLine.h"

#include <charconv>
#include <string_view>

#include <nlohmann/json.hpp>

#include "values.h"

namespace oxttool {

namespace {

constexpr int kNormalLevel = 0;
constexpr int kFailureLevel = 3;
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

const char *colourOf(const TraceLine &line) {
    if (line.isFailure())
        return "\033[1;31m";
    if (!line.parsed || line.level == kNormalLevel)
        return "";
    return line.level == kFailureLevel ? "\033[36m" : "\033[33m";
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

std::string shownTraceLine(const std::string &line, const Look &look) {
    const TraceLine parsed = parseTraceLine(line);
    if (!look.json) {
        const std::string colour = look.colour ? colourOf(parsed) : "";
        return colour + printable(line) + (colour.empty() ? "" : colourEnd(look));
    }
    nlohmann::ordered_json object;
    if (parsed.parsed)
        object = {{"time", parsed.time},   {"process", parsed.process},   {"thread", parsed.thread},
                  {"level", parsed.level}, {"function", parsed.function}, {"line", parsed.sourceLine}};
    object["failure"] = parsed.isFailure();
    object["text"] = parsed.text;
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

} // namespace oxttool
