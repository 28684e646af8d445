#include "shownText.h"

#include <langinfo.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>

#include <nlohmann/json.hpp>

namespace oxttool {

namespace {

struct Character {
    std::size_t bytes = 0; // 0: none begins here
    bool shows = false;
};

// Characters without a shape of their own that turn, join or hide their neighbours, and two that some readers take for
// the end of a line: a name with them looks like another.
bool steersText(std::uint32_t code) {
    return code == 0x061C || (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF;
}

// Overlong forms, surrogates and what lies beyond U+10FFFF are no UTF-8.
Decoded decodedUtf8(std::string_view rest) {
    const auto byte = [rest](std::size_t i) { return static_cast<unsigned char>(rest[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return {1, lead};
    const std::size_t bytes = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || bytes > rest.size())
        return {};
    std::uint32_t code = lead & (0xFFU >> (bytes + 1));
    for (std::size_t i = 1; i < bytes; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return {};
        code = code << 6 | (byte(i) & 0x3FU);
    }
    constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < least[bytes] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return {};
    return {bytes, code};
}

Character inLocale(std::string_view rest) {
    const Decoded next = decoded(rest);
    return {next.bytes, next.bytes != 0 && std::iswprint(next.code) != 0 && !steersText(next.code)};
}

Character inUtf8(std::string_view rest) {
    const Decoded next = decodedUtf8(rest);
    const bool controls = next.code < 0x20 || (next.code >= 0x7F && next.code < 0xA0);
    return {next.bytes, next.bytes != 0 && !controls && !steersText(next.code)};
}

std::string escaped(char c) {
    char code[8];
    std::snprintf(code, sizeof code, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
    return code;
}

bool isEscaped(std::string_view rest) {
    return rest.size() >= 4 && rest.substr(0, 2) == "\\x" && std::isxdigit(static_cast<unsigned char>(rest[2])) &&
           std::isxdigit(static_cast<unsigned char>(rest[3]));
}

template <class Stays>
std::string shown(const std::string &text, Character (*characterAt)(std::string_view), const Stays &stays) {
    std::string safe;
    for (std::string_view rest = text; !rest.empty();) {
        const Character next = characterAt(rest);
        const std::string_view bytes = rest.substr(0, std::max<std::size_t>(next.bytes, 1));
        if (next.shows && stays(rest))
            safe += bytes;
        else
            for (const char c : bytes)
                safe += escaped(c);
        rest.remove_prefix(bytes.size());
    }
    return safe;
}

bool always(std::string_view) {
    return true;
}

} // namespace

Decoded decoded(std::string_view rest) {
    if (std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0)
        return decodedUtf8(rest); // a bar is nothing else: the library's way takes several times as long
    std::mbstate_t state = {};
    wchar_t wide = 0;
    const std::size_t bytes = std::mbrtowc(&wide, rest.data(), rest.size(), &state);
    return bytes == 0 || bytes > rest.size() ? Decoded() : Decoded{bytes, static_cast<std::uint32_t>(wide)};
}

std::string printable(const std::string &text, std::string_view also) {
    const auto isPlain = [also](char c) { return c >= 0x20 && c < 0x7F && c != '\\' && also.find(c) == also.npos; };
    if (std::all_of(text.begin(), text.end(), isPlain))
        return text;
    return shown(text, inLocale,
                 [also](std::string_view rest) { return also.find(rest.front()) == also.npos && !isEscaped(rest); });
}

std::string unprintable(const std::string &shown) {
    std::string text;
    for (std::string_view rest = shown; !rest.empty();) {
        const bool byte = isEscaped(rest);
        text +=
            byte ? static_cast<char>(std::strtoul(std::string(rest.substr(2, 2)).c_str(), nullptr, 16)) : rest.front();
        rest.remove_prefix(byte ? 4 : 1);
    }
    return text;
}

std::string printableLine(const std::string &text) {
    return shown(text, inLocale, always);
}

std::string printableUtf8(const std::string &text) {
    return shown(text, inUtf8, always);
}

std::string asUtf8(const std::string &text) {
    using nlohmann::json;
    return json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::replace)).get<std::string>();
}

std::string shellWord(const std::string &text) {
    const std::string shown = printable(text);
    if (!shown.empty() && std::all_of(shown.begin(), shown.end(), [](unsigned char c) {
            return c >= 0x80 || std::isalnum(c) || std::strchr("/._-+:@%,=", c);
        }))
        return shown;
    std::string word = "'";
    for (const char c : shown)
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

} // namespace oxttool
