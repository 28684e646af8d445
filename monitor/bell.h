// A descriptor by which one thread wakes another that polls it.
#ifndef OXT_MONITOR_BELL_H
#define OXT_MONITOR_BELL_H

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "fd.h"

namespace oxttool {

class Bell {
  public:
    Bell() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    int fd() const { return fd_.get(); } // readable from ring() to silence()
    void ring() const {
        const std::uint64_t one = 1;
        (void)!write(fd_.get(), &one, sizeof one);
    }
    void silence() const {
        std::uint64_t count = 0;
        (void)!read(fd_.get(), &count, sizeof count);
    }

  private:
    Fd fd_;
};

} // namespace oxttool

#endif
