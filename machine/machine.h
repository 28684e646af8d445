// A machine in place of the one that the program runs on: mount table, driver list, device nodes, free space, shared
// memory, waits and the system log, as the provider's calls of the C library find them.
//
// The functions that the provider calls are in tables.cpp, volumes.cpp, segments.cpp, waits.cpp and agent.cpp. They
// come in two forms. Under their own names they replace the C library's for a whole program and the libraries that it
// loads: what tests and benchmarks link. Under the names of the linker's --wrap they are those of one library alone,
// liboxtfsmachine.so, which is the provider's rooms linked that way: what oxtfsctl loads to host a machine out of a
// file, while its own calls stay the C library's.
//
// Everything here may change while other threads run.
#ifndef OXT_MACHINE_H
#define OXT_MACHINE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "segmentTable.h"

namespace oxtmachine {

// What statfs(2) says of a mount point. The defaults are an empty ext file system of 1 KiB blocks.
struct Volume {
    long type = 0xEF53;
    long blockSize = 1024;
    unsigned long blocks = 0;
    unsigned long available = 0; // f_bavail; f_bfree is more
    long nameLength = 255;
    int error = 0;                          // not 0: statfs fails with it
    std::function<void()> during;           // runs inside each statfs, without any lock held: a delay, another client
    std::function<unsigned long()> freeMiB; // likewise: what this call answers, in place of `available`

    std::uint64_t bytes() const { return blocks * static_cast<std::uint64_t>(blockSize); }
    std::uint64_t freeBytes() const { return available * static_cast<std::uint64_t>(blockSize); }
};

// What stat(2) says of a device node.
struct Node {
    mode_t format = 0; // S_IFBLK, S_IFCHR or another
    dev_t number = 0;
    int error = 0; // not 0: stat fails with it
};

// A line of the mount table.
struct Mount {
    std::string device, dir, type;
    bool present = true; // false: not mounted now
};

// What happens at a second of the machine's time. What is not set stays as it is.
struct Event {
    unsigned at = 0;
    std::string dir;
    std::optional<bool> mounted;
    std::optional<std::uint64_t> sizeBytes, freeBytes;
    std::optional<std::int64_t> freeChange; // bytes that become free, or less than 0: used
};

enum class Call { Setmntent, Open, Shmget, Shmat, Shmdt, Shmctl, Usleep, Count };

// A call that fails, or is said to have.
struct Injection {
    Call call;
    int nth; // counts down to the call it strikes; 0 strikes every call
    int error;
    int result;
};

// A line that the provider traced.
struct TraceLine {
    std::string function, text;
};

// What a call gets that nothing here answers.
enum class Rest {
    System, // the real system's answer
    Noted,  // the same, kept here: afterwards this is the machine that the provider saw
    Nothing // there is no such thing
};

// What there is.
struct Facts {
    std::string name;      // for people
    std::string mountText; // of the table "/etc/mtab", in front of the lines of `mounts`
    std::vector<Mount> mounts;
    std::string drivers; // the text of "/proc/devices"
    static constexpr int kUnasked = -1;
    int mountsError = 0, driversError = 0; // not 0: the file cannot be opened; kUnasked: nothing was noted yet
    int memoryError = 0;                   // not 0: there is no shared memory
    std::map<std::string, Node> nodes;     // by path
    std::map<std::string, Volume> volumes; // by mount directory

    // The entries of the mount table as getmntent(3) reads them, in file order.
    std::vector<Mount> mountTable() const;
    // The table as it stands in the file.
    std::string mountTableText() const;
};

struct Machine : Facts {
    Rest rest = Rest::System;
    std::function<Node(const char *path)> otherNode; // of a path that has none; empty: the rest's
    std::function<Volume(const char *path)> otherVolume;

    std::vector<Event> story; // by time; what has happened is taken out
    unsigned speed = 1;       // the machine's seconds in a second; waits last so many times shorter
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();

    // What the provider's calls went to and what became of them.
    std::map<std::string, std::string> redirections; // paths that are opened in place of others
    std::vector<Injection> injections;
    int calls[static_cast<size_t>(Call::Count)] = {};
    unsigned shmgetMs = 0;        // that each shmget(2) takes
    std::vector<unsigned> sleeps; // the seconds of sleep(3)
    std::vector<int> segments;    // real ones, made through shmget and not removed
    std::vector<int> invented;    // identifiers that shmget was made to return: nobody's segments
    std::vector<std::string> systemLog;

    // Of liboxtfsmachine.so alone.
    std::string library; // its path: it brings the agent's alert library
    std::string agent;   // the directory in place of the agent's, with its closing slash
    bool traced = false; // keep the lines in `trace`
    std::vector<TraceLine> trace;
    SegmentTable memory; // shared memory that no other process has

    // Lets happen what is due.
    void advance(std::chrono::steady_clock::time_point now);
};

// From now on the provider's calls find this machine; null: the real one, or none in liboxtfsmachine.so. The machine
// that they found before, as they left it.
std::unique_ptr<Machine> use(std::unique_ptr<Machine> machine);

// Runs with the machine locked. False, and nothing run, where there is none.
bool withMachine(const std::function<void(Machine &)> &action);

// A field of the mount table as the kernel escapes it, and back: every octal escape.
std::string escaped(const std::string &field);
std::string unescaped(const std::string &field);

} // namespace oxtmachine

#endif
