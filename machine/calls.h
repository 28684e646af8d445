// What the replaced functions share. OXT_CALL names one: under its own name, or with OXT_MACHINE_WRAPPED under the one
// that the linker's --wrap gives to the calls of liboxtfsmachine.so.
#ifndef OXT_MACHINE_CALLS_H
#define OXT_MACHINE_CALLS_H

#include <cerrno>
#include <cstdio>
#include <dlfcn.h>

#include "machine.h"

#ifdef OXT_MACHINE_WRAPPED
#define OXT_CALL(name) __wrap_##name
#else
#define OXT_CALL(name) name
#endif

namespace oxtmachine {

template <class Function> Function *realFunction(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

// Without a machine liboxtfsmachine.so finds nothing: it never reaches the real system by mistake.
inline Rest restOfCalls() {
#ifdef OXT_MACHINE_WRAPPED
    Rest rest = Rest::Nothing;
#else
    Rest rest = Rest::System;
#endif
    withMachine([&](const Machine &m) { rest = m.rest; });
    return rest;
}

// Counts a call. True when it is to fail: errno is set then, and the result told.
bool struck(Call call, int *result = nullptr);

// The path behind a redirection, and for one in the agent's directory the one in its place. `inside` tells about the
// latter.
std::string placed(const char *path, bool *inside = nullptr);

} // namespace oxtmachine

#endif
