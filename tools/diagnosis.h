// Why the provider could not begin, in words: no mounted file system qualifies, or there is no shared memory.
#ifndef OXT_TOOL_DIAGNOSIS_H
#define OXT_TOOL_DIAGNOSIS_H

#include "discovery.h"
#include "options.h"

namespace oxttool {

// The failure with its reason where one is found, else as it is. Not while a provider is hosted.
Failure explained(const Failure &failure, const Options &options);

// The words for a machine on which nothing is listed: one sentence, then each mount with what is against it. Pure.
std::string nothingListed(const Discovery &found);

} // namespace oxttool

#endif
