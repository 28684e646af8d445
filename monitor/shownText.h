// Texts of strangers as people read them: whoever mounts a file system chooses the bytes of its name, and a name must
// neither steer a terminal, nor hide or turn its neighbours, nor end the line. A byte that cannot be shown appears as
// \xHH. All pure but for the locale.
#ifndef OXT_MONITOR_SHOWNTEXT_H
#define OXT_MONITOR_SHOWNTEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace oxttool {

// The first character of a text that is not empty, as the locale has it.
struct Decoded {
    std::size_t bytes = 0;  // 0: none begins here
    std::uint32_t code = 0; // of Unicode, as the C library's wchar_t
};
Decoded decoded(std::string_view rest);

// A name as the locale's terminals can show it: each byte that is no part of a printable character, or that is one of
// `also`, as \xHH, and so is the backslash of what would read as such a byte: unprintable() gives the name back.
std::string printable(const std::string &text, std::string_view also = {});
std::string unprintable(const std::string &shown);

// A line of text in which names were made printable already: what reads as \xHH in it stays.
std::string printableLine(const std::string &text);

// The same for readers of UTF-8, whatever this process's locale is: the page.
std::string printableUtf8(const std::string &text);

// The bytes as UTF-8, each sequence that is none replaced by U+FFFD. For programs: control characters stay.
std::string asUtf8(const std::string &text);

// A word of a command line that a shell and this command read as the text.
std::string shellWord(const std::string &text);

} // namespace oxttool

#endif
