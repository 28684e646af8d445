// Texts from outside, mostly names of devices and mount points, as they may be shown. Any byte can be in them. All
// pure.
#ifndef OXT_MONITOR_SHOWNTEXT_H
#define OXT_MONITOR_SHOWNTEXT_H

#include <string>

namespace oxttool {

// The bytes as UTF-8, each sequence that is none replaced by U+FFFD: for programs.
std::string asUtf8(const std::string &text);

// The same for people, safe to write to a terminal: a byte that is no UTF-8 and a control character is shown as \x1b,
// and a character that turns the direction of the text or ends a line as \u202e. Nothing is lost: a backslash that
// could be read as the beginning of either is shown as \x5c.
std::string printable(const std::string &text);

} // namespace oxttool

#endif
