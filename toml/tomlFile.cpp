#include "tomlFile.h"

#include <algorithm>

namespace oxttoml {

namespace {

// A byte beyond ASCII is parsed as the character U+80000 plus its value, in UTF-8. No such character is assigned, and
// toml++ knows it for one that can only stand in a text or a comment.
constexpr std::string_view kByteBegins = "\xF2\x80";
constexpr std::size_t kByteLength = 4;

std::string parsable(std::string_view file) {
    std::string text;
    text.reserve(file.size());
    for (const char c : file) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
            text += c;
        else
            text.append(kByteBegins)
                .append({static_cast<char>(0x80 | byte >> 6), static_cast<char>(0x80 | (byte & 0x3F))});
    }
    return text;
}

} // namespace

std::string textOf(std::string_view parsed) {
    std::string text;
    while (!parsed.empty()) {
        const bool isByte = parsed.size() >= kByteLength && parsed.substr(0, 2) == kByteBegins &&
                            (parsed[2] == '\x82' || parsed[2] == '\x83');
        text += isByte ? static_cast<char>((parsed[2] & 0x03) << 6 | (parsed[3] & 0x3F)) : parsed[0];
        parsed.remove_prefix(isByte ? kByteLength : 1);
    }
    return text;
}

toml::table parse(const std::string &file) {
    if (const auto zero = std::find(file.begin(), file.end(), '\0'); zero != file.end())
        throw NotToml("a zero byte", 1UL + static_cast<unsigned long>(std::count(file.begin(), zero, '\n')));
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    std::string_view text = file;
    if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark)
        text.remove_prefix(kByteOrderMark.size());
    try {
        return toml::parse(parsable(text));
    } catch (const toml::parse_error &error) {
        throw NotToml(textOf(error.description()), error.source().begin.line);
    }
}

} // namespace oxttoml
