// Text put together in a caller's buffer, without the heap, the locale or the C++ run-time library. No state, no lock.
//
// Every function appends at `at` and never passes `end`; no terminating zero is written.
#ifndef AGENT_TEXT_H
#define AGENT_TEXT_H

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace agent {

struct Text {
    char *at;        // where the next byte goes
    char *const end; // one past the last byte that may be written
};

// The whole of the bytes, or as many as still fit; false when something was left out.
bool putBytes(Text &out, const char *bytes, std::size_t length);

// A string of at most `most` bytes; a null pointer is put as "-".
bool putWord(Text &out, const char *word, std::size_t most);

// A decimal number.
bool putNumber(Text &out, std::int64_t number);

// "0x" and eight upper-case hexadecimal digits.
bool putHex(Text &out, std::uint32_t number);

// UTC with milliseconds, as 2031-01-05T07:08:09.123Z.
bool putTime(Text &out, const timespec &time);

// The bytes with control characters shown as \n, \t, \r or \xHH, so that they stay on one line of a log and steer no
// terminal; so are characters that turn the direction of the text, and bytes that are no UTF-8. Stops before the first
// that does not fit and returns false.
bool putVisible(Text &out, const char *bytes, std::size_t length);

// Whether putVisible may change anything.
bool needsCare(const char *bytes, std::size_t length);

// A JSON string with its quotes: control characters and those that turn the direction of the text escaped, bytes that
// are not UTF-8 replaced by U+FFFD, cut behind `most` bytes of the source and then marked with "...". A null pointer is
// put as null. False when it did not fit.
bool putJson(Text &out, const char *string, std::size_t most);

} // namespace agent

#endif
