// libsvalert.so: the alerts of the server-management agent.
//
// An alert becomes one sentence in the system log (facility daemon) and one JSON object in
// <agent directory>log/svalert.json. The library keeps no state but who tells the forecast: any thread of
// any process may send at any time.
#ifndef SVALERT_H
#define SVALERT_H

#include <cstddef>

extern "C" {

// An alert, passed by value. The strings stay the caller's; nothing is kept of them when the call returns.
struct Info {
    int version;            // 0
    int method;             // 1 to 3, how the agent delivers the alert; of no meaning here
    const char *sourceName; // who sends it
    unsigned int eventID;
    int eventType;    // 1 critical, 2 warning, 4 information
    int numOfStrings; // 0 to 16
    char **strings;   // the event's parameters; may be null when there are none
};

static_assert(sizeof(void *) == 8, "the layout is that of a 64-bit system");
static_assert(sizeof(Info) == 40);
static_assert(offsetof(Info, version) == 0);
static_assert(offsetof(Info, method) == 4);
static_assert(offsetof(Info, sourceName) == 8);
static_assert(offsetof(Info, eventID) == 16);
static_assert(offsetof(Info, eventType) == 20);
static_assert(offsetof(Info, numOfStrings) == 24);
static_assert(offsetof(Info, strings) == 32);

// Sends the alert. 0 when the JSON line was written, -1 when it was not or when the record is refused: no source name,
// fewer than 0 or more than 16 strings, strings announced but none given. A refused alert goes nowhere; one that could
// not be written still goes to the system log, which does not tell whether it took it.
__attribute__((visibility("default"))) int SendIndication(Info info);

// What a monitor in this process knows of the future of a file system: by how many MiB an hour its free space shrinks,
// and in how many seconds it will be full. Both are above 0; 0 returned: nothing is known. It is called while an alert
// is sent, in the thread that sends it, and must not wait.
typedef int (*AlertForecast)(const char *device, const char *mountPoint, double *shrinkMiBPerHour,
                             double *fullInSeconds);

// From now on, lines of JSON about free space carry the forecast as "shrinkMiBPerHour" and "fullInSeconds". Null: no
// longer. Optional: a library without this function serves as well.
__attribute__((visibility("default"))) void SetAlertForecast(AlertForecast forecast);
}

#endif
