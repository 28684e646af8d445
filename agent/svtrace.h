// libsvtrace.so: the trace log of the server-management agent.
//
// The library writes the log files below <agent directory>log/. Its functions may be called from any thread of any
// process at any time, also after a fork; they keep errno, are no cancellation points, wait for other threads and
// processes some hundredths of a second at most and never fail towards their caller: a line that cannot be written is
// counted, and a later line tells how many.
#ifndef SVTRACE_H
#define SVTRACE_H

#ifdef __cplusplus
extern "C" {
#endif

// Selects the log for the lines that the calling thread writes from now on. The name is a plain file name of at most 63
// printable bytes and is copied. A name with a slash or "..", the name of the settings file, a null pointer and a ninth
// name in one process are refused: the selection stays as it was.
__attribute__((visibility("default"))) void SetFilePath(const char *logFileName);

// Writes one line: time, process, thread, level, function, source line, the tag when it is not empty, and the text made
// of `format` and its arguments as printf does. Level 0 is normal flow and can be switched off in the settings; every
// other level is always written. Nothing happens in a thread that has not selected a log. Null strings are allowed.
__attribute__((visibility("default"), format(printf, 5, 6))) void
TraceLog(int level, const char *tag, const char *functionName, int sourceLine, const char *format, ...);

// Whether TraceLog would write a line of this level: 0 while the settings switch normal flow off. Callers may leave
// such lines out; they ask again now and then, as the settings are read again about once a second.
__attribute__((visibility("default"))) int TraceWanted(int level);

#ifdef __cplusplus
}
#endif

#endif
