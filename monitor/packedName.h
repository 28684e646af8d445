// Names in JSON. They are bytes of any kind, and JSON takes UTF-8 only: each byte becomes the code point of its number.
#ifndef OXT_MONITOR_PACKEDNAME_H
#define OXT_MONITOR_PACKEDNAME_H

#include <string>

namespace oxttool {

std::string packedName(const std::string &name);
std::string unpackedName(const std::string &text); // throws std::invalid_argument for what is no packed name

} // namespace oxttool

#endif
