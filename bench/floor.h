// What a pass cannot do without: its system calls and its copies to and from the segments, and nothing else.
#ifndef OXT_BENCH_FLOOR_H
#define OXT_BENCH_FLOOR_H

#include <string>
#include <vector>

#include "oxtMemory.h"
#include "oxtShm.h"

namespace bench {

// How often the kernel is asked about a file system that a disk's driver serves; statfs once more where the driver's
// name leaves the kind of disk open ("sd").
struct Questions {
    int stats;
    int statfs;
};
constexpr Questions kByTheSteps = {2, 3}; // each step of discovery asks for itself
constexpr Questions kOnce = {1, 1};       // the least that can tell what a record holds

class Floor {
  public:
    // Over the records and segments that the store has now. It lists the mount table's directories once, before it is
    // measured; a pass has to find them anew.
    Floor(const DatInfo *areas, const ShmInfo *segments);
    ~Floor();
    Floor(const Floor &) = delete;
    Floor &operator=(const Floor &) = delete;
    // One pass. This and each of its parts: false when a call failed.
    bool run(Questions questions, bool readBack);
    bool readFiles();
    bool ask(Questions questions);
    bool copySegments(bool readBack); // each is written; before that all are read back
    bool save();

  private:
    struct Mount {
        std::string device, directory;
        bool open; // the kind of disk
    };
    std::vector<Mount> mounts_;
    std::vector<std::vector<char>> areas_;
    std::vector<int> segments_;
    std::vector<char> image_;
    std::string path_;
};

} // namespace bench

#endif
