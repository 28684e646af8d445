// Shared memory that no other process has: System V segments in this process's own memory.
#ifndef OXT_MACHINE_SEGMENT_TABLE_H
#define OXT_MACHINE_SEGMENT_TABLE_H

#include <cstddef>
#include <map>
#include <memory>

#include <sys/shm.h>
#include <sys/types.h>

namespace oxtmachine {

// Each answers as the system call of its name does, with errno. Whoever calls holds the machine's lock.
class SegmentTable {
  public:
    int get(key_t key, std::size_t size, int flags);
    void *attach(int id);
    int detach(const void *address);
    int control(int id, int command, shmid_ds *data);

  private:
    struct Segment {
        shmid_ds state = {};
        std::unique_ptr<char[]> bytes;
        bool removed = false; // once nobody has it attached
    };
    void drop(std::map<int, Segment>::iterator segment);

    std::map<int, Segment> segments_; // by identifier
    int next_ = 1;
};

} // namespace oxtmachine

#endif
