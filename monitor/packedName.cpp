#include "packedName.h"

#include <stdexcept>

namespace oxttool {

std::string packedName(const std::string &name) {
    std::string text;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80)
            text += static_cast<char>(0xC0 | (byte >> 6));
        text += static_cast<char>(byte >= 0x80 ? 0x80 | (byte & 0x3F) : byte);
    }
    return text;
}

std::string unpackedName(const std::string &text) {
    std::string name;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool pair = (byte == 0xC2 || byte == 0xC3) && i + 1 < text.size();
        if (byte >= 0x80 && !pair)
            throw std::invalid_argument("no packed name");
        name += pair ? static_cast<char>(((byte & 3) << 6) | (text[++i] & 0x3F)) : text[i];
    }
    return name;
}

} // namespace oxttool
