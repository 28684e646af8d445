// The free space of one file system over the last day: every measurement of the last half hour, before that one in five
// minutes. Bounded: 10 seconds, the shortest cycle, make at most 180 and 282 points.
#ifndef OXT_MONITOR_HISTORY_H
#define OXT_MONITOR_HISTORY_H

#include <cstdint>
#include <vector>

namespace oxttool {

struct Measurement {
    std::int64_t time = 0; // seconds since the epoch
    std::uint64_t freeMiB = 0;
};

class History {
  public:
    static constexpr std::int64_t kDay = 24 * 3600;
    static constexpr std::int64_t kFine = 1800; // seconds for which every measurement is kept
    static constexpr std::int64_t kStep = 300;  // between those that are older
    static constexpr std::int64_t kLeast = 10;  // between any two: more often nobody measures

    // Takes the newest measurement. Those that lie in its future are dropped: the clock was set back.
    void add(const Measurement &measured);
    const std::vector<Measurement> &points() const { return points_; } // the oldest first

  private:
    std::vector<Measurement> points_;
};

} // namespace oxttool

#endif
