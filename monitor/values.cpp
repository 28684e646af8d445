#include "values.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iterator>

#include <nlohmann/json.hpp>

#include "failure.h"

namespace oxttool {

namespace {

// The provider reads a number's text into an int.
constexpr std::uint64_t kMostMiB = 2147483647;

struct Suffix {
    const char *letter;
    const char *word;
    double mib;
};
constexpr Suffix kSuffixes[] = {
    {"M", "MiB", 1},
    {"G", "GiB", 1024},
    {"T", "TiB", 1024.0 * 1024},
    {"P", "PiB", 1024.0 * 1024 * 1024},
};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool sameIgnoringCase(const std::string &a, const char *b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    std::size_t i = 0;
    for (; i < a.size() && b[i] != '\0'; ++i)
        if (lower(a[i]) != lower(b[i]))
            return false;
    return i == a.size() && b[i] == '\0';
}

Failure badAmount(const std::string &text, const std::string &why) {
    return {Exit::Usage, "'" + printable(text) + "' is not an amount of space: " + why +
                             "\nWrite MiB (512), a unit of 1024 (512M, 20G, 1T) or a share of the size (10%)."};
}

std::uint64_t wholeMiB(const std::string &text, double mib) {
    if (mib > static_cast<double>(kMostMiB))
        throw badAmount(text, "it is more than " + std::to_string(kMostMiB) + " MiB.");
    return static_cast<std::uint64_t>(mib);
}

} // namespace

std::uint64_t Amount::of(std::uint64_t sizeMiB) const {
    return percent < 0 ? mib : static_cast<std::uint64_t>(static_cast<double>(sizeMiB) * percent / 100);
}

Amount parseAmount(const std::string &text) {
    // A leading digit keeps "inf" and signs away from from_chars.
    if (text.empty() || !isDigit(text.front()))
        throw badAmount(text, "it does not begin with a digit.");
    double number = 0;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    if (parsed.ec != std::errc() || !std::isfinite(number) || !isDigit(parsed.ptr[-1]))
        throw badAmount(text, "the number cannot be read.");
    const std::string unit(parsed.ptr, end);
    Amount amount;
    if (unit == "%") {
        if (number > 100)
            throw badAmount(text, "a share is at most 100%.");
        amount.percent = number;
        return amount;
    }
    if (unit.empty() && number != std::floor(number))
        throw badAmount(text, "MiB are whole.");
    const auto *suffix = std::find_if(std::begin(kSuffixes), std::end(kSuffixes), [&unit](const Suffix &known) {
        return sameIgnoringCase(unit, known.letter) || sameIgnoringCase(unit, known.word);
    });
    if (!unit.empty() && suffix == std::end(kSuffixes))
        throw badAmount(text, "'" + printable(unit) + "' is not a unit.");
    amount.mib = wholeMiB(text, number * (unit.empty() ? 1 : suffix->mib));
    return amount;
}

unsigned parseNumber(const std::string &text, unsigned lowest, unsigned highest, const std::string &what) {
    unsigned number = 0;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number < lowest || number > highest)
        throw Failure(Exit::Usage, "'" + printable(text) + "' is not " + what + ": a whole number from " +
                                       std::to_string(lowest) + " to " + std::to_string(highest) + " is.");
    return number;
}

bool isIndex(const std::string &target) {
    return !target.empty() && std::all_of(target.begin(), target.end(), isDigit);
}

oxthost::ServiceMode parseServiceMode(const std::string &text) {
    if (text == "on")
        return oxthost::ServiceMode::on();
    if (text == "off")
        return oxthost::ServiceMode::off();
    if (text == "fail")
        return {oxthost::ServiceMode::NoSuchInstance, 0};
    const unsigned byte = parseNumber(text, 0, 255, "a service mode ('on', 'off', 'fail' or a byte)");
    return {oxthost::ServiceMode::Byte, static_cast<CMPIBoolean>(byte)};
}

std::string formatSpace(std::uint64_t mib, Unit unit) {
    if (unit == Unit::MiB)
        return std::to_string(mib);
    if (unit == Unit::Bytes)
        return std::to_string(mib * 1048576);
    std::size_t step = 0;
    auto amount = static_cast<double>(mib);
    while (amount >= 1024 && step + 1 < std::size(kSuffixes)) {
        amount /= 1024;
        ++step;
    }
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.1f", amount);
    std::string text = buffer;
    if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0)
        text.resize(text.size() - 2);
    return text + kSuffixes[step].letter;
}

std::string utcTime(std::time_t time) {
    std::tm parts = {};
    char text[32];
    gmtime_r(&time, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

const char *driveName(std::int64_t driveType) {
    constexpr const char *names[] = {"fixed", "removable", "optical", "ramdisk"};
    return driveType >= 0 && driveType < 4 ? names[driveType] : "unknown";
}

const char *statusName(std::int64_t freeSpaceStatus) {
    constexpr const char *names[] = {"not monitored", "normal", "warning", "fatal"};
    return freeSpaceStatus >= 0 && freeSpaceStatus < 4 ? names[freeSpaceStatus] : "unknown";
}

std::string asUtf8(const std::string &text) {
    using nlohmann::json;
    return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace)).get<std::string>();
}

std::string printable(const std::string &text) {
    const std::string utf8 = asUtf8(text);
    std::string safe;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        // U+0080 to U+009F steer terminals too.
        const bool wide = byte == 0xC2 && static_cast<unsigned char>(utf8[i + 1]) < 0xA0;
        safe += wide || byte < 0x20 || byte == 0x7F ? '?' : utf8[i];
        i += wide ? 1 : 0;
    }
    return safe;
}

} // namespace oxttool
