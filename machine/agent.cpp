// The agent's directory and its two libraries, for liboxtfsmachine.so alone: files lie in the machine's own directory,
// the trace is kept or dropped, and the alert library is the stand-in that liboxtfsmachine.so brings.
#include "calls.h"

#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace oxtmachine;

namespace {

char traceLibrary; // its address is the handle

void selectLog(const char *) {}

__attribute__((format(printf, 5, 6))) void traceLog(int, const char *, const char *function, int, const char *format,
                                                    ...) {
    bool traced = false;
    withMachine([&](const Machine &m) { traced = m.traced; });
    if (!traced)
        return;
    char *text = nullptr;
    va_list arguments;
    va_start(arguments, format);
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (length < 0)
        return;
    withMachine([&](Machine &m) { m.trace.push_back({function, text}); });
    free(text);
}

// The path of the agent's file, or null with errno: liboxtfsmachine.so opens nothing else.
const char *agentPath(const char *path, std::string &place) {
    bool inside = false;
    place = placed(path, &inside);
    if (inside && place != path)
        return place.c_str();
    errno = ENOENT;
    return nullptr;
}

} // namespace

extern "C" {

int __wrap_rename(const char *from, const char *to) {
    std::string fromPlace, toPlace;
    const char *const source = agentPath(from, fromPlace), *const target = agentPath(to, toPlace);
    return source != nullptr && target != nullptr ? rename(source, target) : -1;
}

int __wrap_unlink(const char *path) {
    std::string place;
    const char *const file = agentPath(path, place);
    return file != nullptr ? unlink(file) : -1;
}

int __wrap_lstat(const char *path, struct stat *st) {
    std::string place;
    const char *const file = agentPath(path, place);
    return file != nullptr ? lstat(file, st) : -1;
}

key_t __wrap_ftok(const char *path, int project) {
    std::string place;
    const char *const file = agentPath(path, place);
    return file != nullptr ? ftok(file, project) : -1;
}

void *__wrap_dlopen(const char *path, int mode) {
    std::string library;
    withMachine([&](const Machine &m) { library = m.library; });
    if (std::strstr(path, "/libsvtrace.so") != nullptr)
        return &traceLibrary;
    return std::strstr(path, "/libsvalert.so") != nullptr ? dlopen(library.c_str(), mode) : nullptr;
}

void *__wrap_dlsym(void *handle, const char *name) {
    if (handle != &traceLibrary)
        return dlsym(handle, name);
    return std::strcmp(name, "TraceLog") == 0      ? reinterpret_cast<void *>(traceLog)
           : std::strcmp(name, "SetFilePath") == 0 ? reinterpret_cast<void *>(selectLog)
                                                   : nullptr;
}

int __wrap_dlclose(void *handle) {
    return handle == &traceLibrary ? 0 : dlclose(handle);
}

} // extern "C"
