// File systems to measure with: a mount table and a driver list from files, over real directories and device nodes.
//
// The module owns a directory of its own, the working directory of the program from then on, and a machine (machine/)
// that has two other files in place of the system's; every other call reaches the kernel. Its paths are relative, so
// that a pass costs the same instructions wherever the build lies. For a program with one thread.
#ifndef OXT_BENCH_FIXTURE_H
#define OXT_BENCH_FIXTURE_H

#include <string>

namespace bench {

// Makes the directory with room for so many file systems and goes there; false with a line on stderr. A device node is
// a link to /dev/null, which every machine has, and the driver list gives its major number to a disk driver.
bool makeFixture(const std::string &directory, int most);

// From now on the machine has the first n file systems; 0: its own mount table and drivers.
void useFileSystems(int n);

// The path that the two system files are read from.
const std::string &mountTablePath();
const std::string &driverListPath();

} // namespace bench

#endif
