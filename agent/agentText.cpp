#include "agentText.h"

#include <cstring>

namespace agent {

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

bool isControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

// Eight bytes at once, since every line is searched: a byte below n borrows from its top bit when n is taken away, and
// a byte equal to 0x7F is zero after the exclusive or, hence below 1. A byte beyond ASCII has its top bit set.
bool wordNeedsCare(std::uint64_t eight) {
    constexpr std::uint64_t kEach = 0x0101010101010101U;
    const std::uint64_t del = eight ^ kEach * 0x7F;
    return (((eight - kEach * 0x20) | ((del - kEach) & ~del) | eight) & kEach * 0x80) != 0;
}

// `digits` decimal digits with leading zeros; the caller has seen to the room.
void placeDigits(char *at, int digits, unsigned number) {
    for (int i = digits - 1; i >= 0; --i) {
        at[i] = static_cast<char>('0' + number % 10);
        number /= 10;
    }
}

struct Date {
    unsigned year, month, day;
};

// The Gregorian date of a day counted from 1970-01-01. Done here because gmtime_r takes the C library's time zone lock,
// which a thread of the host may hold at the moment of a fork.
Date dateOf(std::int64_t day) {
    // Counted from 0000-03-01, so that the leap day is the last of its year; 146097 days are 400 years.
    const std::int64_t shifted = day + 719468;
    const std::int64_t era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(shifted - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned marchMonth = (5 * dayOfYear + 2) / 153;
    const unsigned month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
    const auto year = static_cast<unsigned>(yearOfEra + era * 400) + (month <= 2 ? 1 : 0);
    return {year, month, dayOfYear - (153 * marchMonth + 2) / 5 + 1};
}

// The bytes of the well-formed UTF-8 sequence that begins at `bytes`, 0 when none does.
std::size_t sequenceLength(const char *bytes, std::size_t left) {
    const auto byteAt = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = byteAt(0);
    if (lead < 0x80)
        return 1;
    const std::size_t length = lead < 0xC2 ? 0U : lead < 0xE0 ? 2U : lead < 0xF0 ? 3U : lead < 0xF5 ? 4U : 0U;
    if (length == 0 || length > left)
        return 0;
    // The second byte excludes overlong forms, surrogates and what lies beyond U+10FFFF.
    const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (byteAt(1) < low || byteAt(1) > high)
        return 0;
    for (std::size_t i = 2; i < length; ++i)
        if ((byteAt(i) & 0xC0) != 0x80)
            return 0;
    return length;
}

// Whether a sequence of several bytes is a control character (U+0080 to U+009F), or one without a shape of its own that
// turns, joins or hides its neighbours, or a separator that some readers take for the end of a line.
bool steersText(const char *bytes, std::size_t length) {
    const auto second = static_cast<unsigned char>(bytes[1]);
    const auto last = static_cast<unsigned char>(bytes[length - 1]);
    switch (static_cast<unsigned char>(bytes[0])) {
    case 0xC2:
        return last < 0xA0;
    case 0xD8:
        return last == 0x9C;
    case 0xE2:
        return (second == 0x80 && ((last >= 0x8B && last <= 0x8F) || (last >= 0xA8 && last <= 0xAE))) ||
               (second == 0x81 && last >= 0xA0 && last <= 0xAF);
    case 0xEF:
        return second == 0xBB && last == 0xBF;
    default:
        return false;
    }
}

// The code of a sequence of two or three bytes.
unsigned codeOf(const char *bytes, std::size_t length) {
    unsigned code = static_cast<unsigned char>(bytes[0]) & (length == 2 ? 0x1FU : 0x0FU);
    for (std::size_t i = 1; i < length; ++i)
        code = code << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3FU);
    return code;
}

bool putEscaped(Text &out, const char *prefix, std::size_t length, unsigned char byte) {
    const char digits[] = {kHexDigits[byte >> 4], kHexDigits[byte & 0xF]};
    if (static_cast<std::size_t>(out.end - out.at) < length + sizeof digits)
        return false;
    return putBytes(out, prefix, length) && putBytes(out, digits, sizeof digits);
}

} // namespace

bool putBytes(Text &out, const char *bytes, std::size_t length) {
    const auto room = static_cast<std::size_t>(out.end - out.at);
    const std::size_t taken = length < room ? length : room;
    std::memcpy(out.at, bytes, taken);
    out.at += taken;
    return taken == length;
}

bool putWord(Text &out, const char *word, std::size_t most) {
    const char *shown = word != nullptr ? word : "-";
    return putBytes(out, shown, strnlen(shown, most));
}

bool putNumber(Text &out, std::int64_t number) {
    char digits[21];
    char *at = digits + sizeof digits;
    auto rest = static_cast<std::uint64_t>(number);
    if (number < 0)
        rest = 0 - rest;
    do {
        *--at = static_cast<char>('0' + rest % 10);
        rest /= 10;
    } while (rest != 0);
    if (number < 0)
        *--at = '-';
    return putBytes(out, at, static_cast<std::size_t>(digits + sizeof digits - at));
}

bool putHex(Text &out, std::uint32_t number) {
    char digits[10] = {'0', 'x'};
    for (std::size_t i = 0; i < 8; ++i)
        digits[2 + i] = kHexDigits[number >> (28 - 4 * i) & 0xF];
    return putBytes(out, digits, sizeof digits);
}

bool putTime(Text &out, const timespec &time) {
    constexpr std::int64_t kDay = 86400;
    const std::int64_t second = time.tv_sec;
    const std::int64_t day = (second >= 0 ? second : second - (kDay - 1)) / kDay;
    const auto ofDay = static_cast<unsigned>(second - day * kDay);
    const Date date = dateOf(day);
    char text[] = "0000-00-00T00:00:00.000Z";
    placeDigits(text, 4, date.year);
    placeDigits(text + 5, 2, date.month);
    placeDigits(text + 8, 2, date.day);
    placeDigits(text + 11, 2, ofDay / 3600);
    placeDigits(text + 14, 2, ofDay / 60 % 60);
    placeDigits(text + 17, 2, ofDay % 60);
    placeDigits(text + 20, 3, static_cast<unsigned>(time.tv_nsec / 1000000));
    return putBytes(out, text, sizeof text - 1);
}

bool putVisible(Text &out, const char *bytes, std::size_t length) {
    for (std::size_t i = 0; i < length;) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        const std::size_t sequence = sequenceLength(bytes + i, length - i);
        const std::size_t taken = sequence != 0 ? sequence : 1;
        const char *const known = byte == '\n' ? "\\n" : byte == '\t' ? "\\t" : byte == '\r' ? "\\r" : nullptr;
        const bool shown = sequence == 1 ? !isControl(byte) : sequence != 0 && !steersText(bytes + i, sequence);
        const std::size_t room = shown ? taken : known != nullptr ? 2 : 4 * taken;
        if (static_cast<std::size_t>(out.end - out.at) < room)
            return false;
        if (shown) {
            (void)putBytes(out, bytes + i, taken);
        } else if (known != nullptr) {
            (void)putBytes(out, known, 2);
        } else {
            for (std::size_t k = 0; k < taken; ++k)
                (void)putEscaped(out, "\\x", 2, static_cast<unsigned char>(bytes[i + k]));
        }
        i += taken;
    }
    return true;
}

bool needsCare(const char *bytes, std::size_t length) {
    std::size_t i = 0;
    for (; i + 8 <= length; i += 8) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, bytes + i, sizeof eight);
        if (wordNeedsCare(eight))
            return true;
    }
    while (i < length && static_cast<signed char>(bytes[i]) >= 0x20 && bytes[i] != 0x7F) { // else negative
        ++i;
    }
    return i < length;
}

bool putJson(Text &out, const char *string, std::size_t most) {
    if (string == nullptr)
        return putBytes(out, "null", 4);
    const std::size_t length = strnlen(string, most);
    bool fits = putBytes(out, "\"", 1);
    for (std::size_t i = 0; i < length && fits;) {
        const auto byte = static_cast<unsigned char>(string[i]);
        const std::size_t sequence = sequenceLength(string + i, length - i);
        if (sequence == 0) {
            fits = putBytes(out, "\xEF\xBF\xBD", 3);
        } else if (isControl(byte)) {
            fits = putEscaped(out, "\\u00", 4, byte);
        } else if (byte == '"' || byte == '\\') {
            fits = putBytes(out, "\\", 1) && putBytes(out, string + i, 1);
        } else if (sequence > 1 && steersText(string + i, sequence)) {
            const unsigned code = codeOf(string + i, sequence);
            fits = putEscaped(out, "\\u", 2, static_cast<unsigned char>(code >> 8)) &&
                   putEscaped(out, "", 0, static_cast<unsigned char>(code & 0xFF));
        } else {
            fits = putBytes(out, string + i, sequence);
        }
        i += sequence != 0 ? sequence : 1;
    }
    if (fits && length == most && string[length] != '\0')
        fits = putBytes(out, "...", 3);
    return fits && putBytes(out, "\"", 1);
}

} // namespace agent
