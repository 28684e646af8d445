// What a fuzzed function promises: a broken promise ends the process with its text, as the fuzzer expects of a fault.
#ifndef OXT_FUZZ_PROMISE_H
#define OXT_FUZZ_PROMISE_H

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "oxtTrace.h"

#define PROMISE(condition)                                                                                             \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                                    \
            abort();                                                                                                   \
        }                                                                                                              \
    } while (0)

// While it lives somebody listens to the trace: every line is formatted, so that every text in it is read to its end.
class Listener {
  public:
    Listener() { g_Func[OXT_FUNC_TRACELOG].store(reinterpret_cast<const void *>(&line)); }
    ~Listener() { g_Func[OXT_FUNC_TRACELOG].store(nullptr); }
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

  private:
    __attribute__((format(printf, 5, 6))) static void line(int, const char *, const char *, int, const char *format,
                                                           ...) {
        char text[512];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(text, sizeof text, format, arguments);
        va_end(arguments);
    }
};

#endif
