#include "shownText.h"

#include <cstdint>
#include <cstdio>

#include <nlohmann/json.hpp>

namespace oxttool {

namespace {

struct Character {
    std::uint32_t code = 0;
    std::size_t bytes = 0; // 0: no UTF-8 begins here
};

// Overlong forms, surrogates and what lies beyond U+10FFFF are none.
Character characterAt(const std::string &text, std::size_t at) {
    const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80)
        return {lead, 1};
    const std::size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || bytes > text.size() - at)
        return {};
    std::uint32_t code = lead & (0xFFU >> (bytes + 1));
    for (std::size_t i = 1; i < bytes; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80)
            return {};
        code = code << 6 | (byte(at + i) & 0x3FU);
    }
    constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < least[bytes] || code > 0x10FFFF || surrogate ? Character{} : Character{code, bytes};
}

bool isControl(std::uint32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

// Marks, embeddings, overrides and isolates of direction, and the two separators that some readers take for line ends.
bool steersText(std::uint32_t code) {
    return code == 0x061C || code == 0x200E || code == 0x200F || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2066 && code <= 0x2069);
}

std::string escaped(char kind, int digits, unsigned number) {
    char text[16];
    std::snprintf(text, sizeof text, "\\%c%0*x", kind, digits, number);
    return text;
}

} // namespace

std::string asUtf8(const std::string &text) {
    using nlohmann::json;
    return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace)).get<std::string>();
}

std::string printable(const std::string &text) {
    std::string shown;
    for (std::size_t at = 0; at < text.size();) {
        const Character next = characterAt(text, at);
        const std::size_t bytes = next.bytes != 0 ? next.bytes : 1;
        const bool readsAsEscape =
            next.code == '\\' && at + 1 < text.size() && (text[at + 1] == 'x' || text[at + 1] == 'u');
        if (next.bytes != 0 && steersText(next.code))
            shown += escaped('u', 4, next.code);
        else if (next.bytes == 0 || isControl(next.code) || readsAsEscape)
            for (std::size_t i = 0; i < bytes; ++i)
                shown += escaped('x', 2, static_cast<unsigned char>(text[at + i]));
        else
            shown.append(text, at, bytes);
        at += bytes;
    }
    return shown;
}

} // namespace oxttool
