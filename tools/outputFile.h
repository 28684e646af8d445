// A text for other programs to read: on the standard output, or as a file that is there as a whole or not at all.
#ifndef OXT_TOOL_OUTPUTFILE_H
#define OXT_TOOL_OUTPUTFILE_H

#include <string>

namespace oxttool {

// Prints the text, or, when a path is given, puts a file of mode 0644 in the place of what is there. The directory may
// be another user's: no link is followed, neither on the way to it nor in it, and nothing outside it is touched.
// Whoever is cut off leaves the old file, and at most a hidden one beside it that the next call replaces. Throws an
// environment failure when it cannot be written.
void deliver(const std::string &text, const std::string &path);

} // namespace oxttool

#endif
