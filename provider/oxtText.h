// Text for clients: what leaves in a string property is valid UTF-8 that an XML answer can carry.
#ifndef OXT_TEXT_H
#define OXT_TEXT_H

#include <cstddef>

constexpr size_t OXT_TEXT_GROWTH = 3; // bytes that one bad byte becomes at most

// The text itself when it is fit for clients, else its copy in `buffer` (OXT_TEXT_GROWTH times its length and a zero)
// with U+FFFD for each byte that is not UTF-8 and for each character that XML 1.0 does not allow. One such byte in a
// mount point would cost the client the whole answer.
const char *oxtClientText(const char *text, char *buffer, size_t size);

#endif
