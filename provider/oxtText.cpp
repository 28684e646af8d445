#include "oxtText.h"

#include <cstring>

namespace {

constexpr char REPLACEMENT[] = "\xEF\xBF\xBD"; // U+FFFD

bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The code point's smallest value by sequence length: longer forms of it are not UTF-8 (RFC 3629).
constexpr unsigned SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};

bool isXmlCharacter(unsigned code) {
    if (code < 0x20)
        return code == '\t' || code == '\n' || code == '\r';
    return !(code >= 0xD800 && code <= 0xDFFF) && code != 0xFFFE && code != 0xFFFF && code <= 0x10FFFF;
}

// Bytes of the good character at `text`, 0 when there is none.
size_t goodLength(const char *text) {
    const unsigned char first = static_cast<unsigned char>(text[0]);
    const size_t length = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 0;
    if (length == 0 || first >= 0xF8)
        return 0;
    unsigned code = length == 1 ? first : first & (0xFFU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        const unsigned char byte = static_cast<unsigned char>(text[i]);
        if (!isContinuation(byte)) // the closing zero included
            return 0;
        code = code << 6 | (byte & 0x3FU);
    }
    return code >= SMALLEST[length] && isXmlCharacter(code) ? length : 0;
}

} // namespace

const char *oxtClientText(const char *text, char *buffer, size_t size) {
    const char *at = text;
    size_t length = 0;
    while (*at != '\0' && (length = goodLength(at)) > 0)
        at += length;
    if (*at == '\0')
        return text;
    size_t used = 0;
    for (at = text; *at != '\0';) {
        length = goodLength(at);
        const size_t bytes = length > 0 ? length : sizeof REPLACEMENT - 1;
        if (used + bytes >= size)
            break;
        memcpy(buffer + used, length > 0 ? at : REPLACEMENT, bytes);
        used += bytes;
        at += length > 0 ? length : 1;
    }
    buffer[used] = '\0';
    return buffer;
}
