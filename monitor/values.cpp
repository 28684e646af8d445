#include "values.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "failure.h"
#include "shownText.h"

namespace oxttool {

namespace {

// The provider reads a number's text into an int.
constexpr std::uint64_t kMostMiB = 2147483647;

constexpr char kUnits[] = "KMGTP"; // each 1024 times the one before

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

Failure badAmount(const std::string &text, const std::string &why) {
    return {Exit::Usage, "'" + printable(text) + "' " + why +
                             "\nUse a unit of 1024 (512M, 20G, 1T), a percentage of the size (10%), or MiB (512)."};
}

// How many MiB a unit has: "G", "Gi" and "GiB" are of 1024, "GB" is of 1000, as df(1) has them. 0 for none.
double mibOf(std::string unit) {
    std::transform(unit.begin(), unit.end(), unit.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    const char *letter = unit.empty() ? nullptr : std::strchr(kUnits, unit.front());
    const std::string rest = letter ? unit.substr(1) : "";
    if (!letter || (!rest.empty() && rest != "I" && rest != "IB" && rest != "B"))
        return 0;
    double bytes = 1;
    for (const char *at = kUnits; at <= letter; ++at)
        bytes *= rest == "B" ? 1000 : 1024;
    return bytes / 1048576;
}

} // namespace

std::uint64_t Amount::of(std::uint64_t sizeMiB) const {
    return percent < 0 ? mib : static_cast<std::uint64_t>(static_cast<double>(sizeMiB) * percent / 100);
}

Amount parseAmount(const std::string &text) {
    double number = 0;
    const char *end = text.data() + text.size();
    // A leading digit keeps "inf" and signs away from from_chars.
    const bool digit = !text.empty() && isDigit(text.front());
    const auto parsed = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    if (!digit || parsed.ec != std::errc() || !std::isfinite(number) || !isDigit(parsed.ptr[-1]))
        throw badAmount(text, "is not an amount of space.");
    const std::string unit(parsed.ptr, end);
    Amount amount;
    amount.bare = unit.empty();
    if (unit == "%") {
        if (number > 100)
            throw badAmount(text, "is more than the whole size.");
        amount.percent = number;
        return amount;
    }
    if (amount.bare && number != std::floor(number))
        throw badAmount(text, "has no unit: MiB are whole numbers.");
    const double factor = amount.bare ? 1 : mibOf(unit);
    if (factor == 0)
        throw badAmount(text, "is not an amount of space: '" + printable(unit) + "' is no unit.");
    if (number * factor > static_cast<double>(kMostMiB))
        throw badAmount(text, "is more than " + std::to_string(kMostMiB) + " MiB.");
    if (number * factor < 1)
        throw badAmount(text, "is less than 1 MiB.");
    amount.mib = static_cast<std::uint64_t>(number * factor);
    return amount;
}

unsigned parseNumber(const std::string &text, unsigned lowest, unsigned highest, const std::string &what) {
    unsigned number = 0;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number < lowest || number > highest)
        throw Failure(Exit::Usage, "'" + printable(text) + "' is not " + what + ": use a whole number from " +
                                       std::to_string(lowest) + " to " + std::to_string(highest) + ".");
    return number;
}

unsigned parseCycle(const std::string &text) {
    return parseNumber(text, kLeastCycle, kGreatestCycle, "a cycle in seconds");
}

std::string cycleRange() {
    return std::to_string(kLeastCycle) + " to " + std::to_string(kGreatestCycle);
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
    unsigned byte = 0;
    const char *end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, byte);
    if (parsed.ec != std::errc() || parsed.ptr != end || byte > 255)
        throw Failure(Exit::Usage,
                      "'" + printable(text) + "' is not a service mode: use on, off, fail or a byte (0 to 255).");
    return {oxthost::ServiceMode::Byte, static_cast<CMPIBoolean>(byte)};
}

std::string formatSpace(std::uint64_t mib, Unit unit) {
    if (unit == Unit::MiB)
        return std::to_string(mib);
    if (unit == Unit::Bytes)
        return std::to_string(mib * 1048576);
    const char *letter = kUnits + 1; // M
    std::uint64_t one = 1;           // of the unit, in MiB
    for (; mib >= one * 1024 && letter[1] != '\0'; ++letter)
        one *= 1024;
    const std::uint64_t whole = mib / one, tenths = (mib % one * 10 + one / 2) / one; // 10 carries over
    const std::uint64_t shown = whole + tenths / 10;
    const std::string tenth = tenths % 10 == 0 ? "" : "." + std::to_string(tenths % 10);
    return std::to_string(shown) + tenth + *letter;
}

std::string spaceOrUnknown(const std::optional<std::uint64_t> &mib, Unit unit) {
    return mib ? formatSpace(*mib, unit) : "?";
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

} // namespace oxttool
