// Strings and date-times, and the comparing of names.
#include "oxtHostStrings.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "oxtHostSlot.h"

namespace oxthost {
namespace {

// A host's getCharPtr may be declared with or without const; the slot is the same.
using CharPtr = decltype(std::declval<CMPIStringFT>().getCharPtr(nullptr, nullptr));

constexpr CMPIUint64 kSecond = 1000000;

int digitsAt(const std::string &text, std::size_t at, std::size_t count) {
    int number = 0;
    std::from_chars(text.data() + at, text.data() + at + count, number);
    return number;
}

} // namespace

StringBody::~StringBody() {
    // volatile: without it the compiler drops writes that nobody reads.
    volatile char *bytes = text.data();
    for (std::size_t i = 0; i < text.size(); ++i)
        bytes[i] = '\x7f';
}

std::string DateTimeBody::text() const {
    const auto micros = static_cast<unsigned>(microseconds % kSecond);
    const auto seconds = static_cast<std::time_t>(microseconds / kSecond);
    char buffer[64];
    if (interval) {
        std::snprintf(buffer, sizeof buffer, "%08lld%02d%02d%02d.%06u:000", static_cast<long long>(seconds / 86400),
                      static_cast<int>(seconds / 3600 % 24), static_cast<int>(seconds / 60 % 60),
                      static_cast<int>(seconds % 60), micros);
        return buffer;
    }
    const std::time_t local = seconds + utcOffset * 60;
    std::tm parts = {};
    gmtime_r(&local, &parts);
    std::snprintf(buffer, sizeof buffer, "%04d%02d%02d%02d%02d%02d.%06u%c%03d", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, micros, utcOffset < 0 ? '-' : '+',
                  std::abs(utcOffset));
    return buffer;
}

std::shared_ptr<DateTimeBody> parseDateTime(const std::string &text, bool strict) {
    constexpr std::size_t point = 14, sign = 21, length = 25;
    if (text.size() != length || std::string("+-:").find(text[sign]) == std::string::npos)
        return nullptr;
    for (std::size_t i = 0; strict && i < length; ++i) {
        const bool isDigit = std::isdigit(static_cast<unsigned char>(text[i])) != 0;
        if (i == sign ? isDigit : i == point ? text[i] != '.' : !isDigit)
            return nullptr;
    }
    auto date = std::make_shared<DateTimeBody>();
    date->interval = text[sign] == ':';
    std::tm parts = {};
    parts.tm_hour = digitsAt(text, 8, 2);
    parts.tm_min = digitsAt(text, 10, 2);
    parts.tm_sec = digitsAt(text, 12, 2);
    long long seconds = 0;
    if (date->interval) {
        seconds = digitsAt(text, 0, 8) * 86400LL + parts.tm_hour * 3600 + parts.tm_min * 60 + parts.tm_sec;
    } else {
        parts.tm_year = digitsAt(text, 0, 4) - 1900;
        parts.tm_mon = digitsAt(text, 4, 2) - 1;
        parts.tm_mday = digitsAt(text, 6, 2);
        date->utcOffset = digitsAt(text, 22, 3) * (text[sign] == '-' ? -1 : 1);
        seconds = timegm(&parts) - date->utcOffset * 60;
    }
    date->microseconds = static_cast<CMPIUint64>(std::max(seconds, 0LL)) * kSecond +
                         static_cast<CMPIUint64>(std::max(digitsAt(text, 15, 6), 0));
    return date;
}

bool sameName(std::string_view a, std::string_view b) {
    // Equal bytes first: most names match as they are, and tolower is a call.
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
               return x == y || std::tolower(x) == std::tolower(y);
           });
}

bool contains(const std::vector<std::string> &names, std::string_view name) {
    return std::any_of(names.begin(), names.end(), [&](const std::string &n) { return sameName(n, name); });
}

NamedDatum *find(std::vector<NamedDatum> &items, std::string_view name) {
    const auto item = std::find_if(items.begin(), items.end(), [&](auto &i) { return sameName(i.name, name); });
    return item != items.end() ? &*item : nullptr;
}

void put(std::vector<NamedDatum> &items, const std::string &name, Datum datum) {
    if (NamedDatum *item = find(items, name))
        item->datum = std::move(datum);
    else
        items.push_back({name, std::move(datum)});
}

void fillStrings(Tables &tables, const Broker &broker) {
    fillCommon<StringBody>(tables.string, broker);
    tables.string.getCharPtr = [](const CMPIString *self, CMPIStatus *rc) {
        const char *text = onObject<StringBody>("getCharPtr", self, rc, [](Broker &, StringBody &body) {
            return body.null ? static_cast<const char *>(nullptr) : body.text.c_str();
        });
        return const_cast<CharPtr>(text);
    };

    fillCommon<DateTimeBody>(tables.dateTime, broker);
    tables.dateTime.getBinaryFormat = [](const CMPIDateTime *self, CMPIStatus *rc) {
        return onObject<DateTimeBody>("getBinaryFormat", self, rc,
                                      [](Broker &, DateTimeBody &body) { return body.microseconds; });
    };
    tables.dateTime.getStringFormat = [](const CMPIDateTime *self, CMPIStatus *rc) {
        return onObject<DateTimeBody>("getStringFormat", self, rc,
                                      [](Broker &host, DateTimeBody &body) { return host.makeString(body.text()); });
    };
    tables.dateTime.isInterval = [](const CMPIDateTime *self, CMPIStatus *rc) {
        return onObject<DateTimeBody>("isInterval", self, rc,
                                      [](Broker &, DateTimeBody &body) { return CMPIBoolean{body.interval}; });
    };
}

} // namespace oxthost
