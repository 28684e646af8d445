// Nobody listens: the provider does not find the agent's libraries. For programs that load it.

#include <cstring>
#include <dlfcn.h>

extern "C" void *dlopen(const char *file, int mode) noexcept {
    static const auto real = reinterpret_cast<void *(*)(const char *, int)>(dlsym(RTLD_NEXT, "dlopen"));
    return file != nullptr && std::strstr(file, "libsv") != nullptr ? nullptr : real(file, mode);
}
