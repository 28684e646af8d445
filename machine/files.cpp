// The agent's files: open(2).
#include "calls.h"

#include <cstdarg>
#include <cstring>

#include <fcntl.h>

using namespace oxtmachine;

namespace {

// Data of the agent only: a sanitizer opens programs in the midst of a report, and a second one would wait for it.
bool isData(const char *file) {
    constexpr char kData[] = OXT_AGENT_DIR "data/";
    return std::strncmp(file, kData, sizeof kData - 1) == 0;
}

} // namespace

extern "C" int OXT_CALL(open)(const char *file, int flags, ...) {
    static const auto real = realFunction<int(const char *, int, ...)>("open");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
#ifdef OXT_MACHINE_WRAPPED
    bool inside = false;
    const std::string path = placed(file, &inside);
    if (inside && path != file)
        return isData(file) && struck(Call::Open) ? -1 : real(path.c_str(), flags, mode);
    errno = ENOENT;
    return -1;
#else
    if (!isData(file))
        return real(file, flags, mode);
    return struck(Call::Open) ? -1 : real(placed(file).c_str(), flags, mode);
#endif
}
