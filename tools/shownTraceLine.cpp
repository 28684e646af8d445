#include "shownTraceLine.h"

#include <nlohmann/json.hpp>

#include "shownText.h"
#include "traceLine.h"

namespace oxttool {

namespace {

const char *colourOf(const TraceLine &line) {
    if (line.isFailure())
        return "\033[1;31m";
    if (!line.parsed || line.level == TraceLine::kNormalLevel)
        return "";
    return line.level == TraceLine::kFailureLevel ? "\033[36m" : "\033[33m";
}

} // namespace

std::string shownTraceLine(const std::string &line, const Look &look) {
    const TraceLine parsed = parseTraceLine(line);
    if (!look.json) {
        const std::string colour = look.colour ? colourOf(parsed) : "";
        return colour + printableLine(line) + (colour.empty() ? "" : colourEnd(look));
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
