// The monitor's page: one HTML document without outside parts. Its frame is page.html; what stands in it is made here,
// so that it is a whole page without any script, too. Names are anybody's: none leaves its place in the text.
#ifndef OXT_MONITOR_PAGE_H
#define OXT_MONITOR_PAGE_H

#include <string>

#include "view.h"

namespace oxttool {

extern const char *const kPageFrame;

// `nonce` is what the page's own script and style are known by to the browser; nothing else runs.
std::string pageText(const View &view, bool well, const std::string &nonce);
std::string freshNonce();

// The text as HTML text or attribute value, with characters that nobody sees made visible.
std::string htmlText(const std::string &text);

} // namespace oxttool

#endif
