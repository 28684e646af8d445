// Reading of date-times.
#ifndef OXT_HOST_STRINGS_H
#define OXT_HOST_STRINGS_H

#include <memory>
#include <string>

#include "oxtHostObjects.h"

namespace oxthost {

// The 25-character text as a date-time, nullptr when it is none. Not strict: only length and sign position count.
std::shared_ptr<DateTimeBody> parseDateTime(const std::string &text, bool strict);

} // namespace oxthost

#endif
