// The decisions of one schedule after another: which of several threads goes on. It knows neither threads nor calls.
#ifndef OXT_SCHEDULE_H
#define OXT_SCHEDULE_H

#include <cstddef>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace explorer {

class Schedule {
  public:
    // The first schedule of a search through all with at most so many preemptions.
    void search(int preemptions);
    // To the next one; false after the last.
    bool advance();
    // From now on all schedules are random ones.
    void drawLots(unsigned seed);

    void begin(); // one schedule, from its first decision
    // The option that is taken, of at least two. Each costs so many preemptions, the first none. Nothing when the
    // options are not those that the schedule had here before.
    std::optional<std::size_t> choose(const std::vector<int> &costs);
    void explain(const std::string &what); // the last choice, which was not the first option
    std::string text() const;              // a line for each choice that was not the first option

  private:
    struct Decision {
        std::size_t taken;
        std::vector<int> costs;
        int before; // preemptions until here
        std::string what;
    };

    std::vector<Decision> trail_; // what it has in common with the schedule before, then what it adds
    std::size_t position_ = 0;
    int most_ = 0;
    std::unique_ptr<std::mt19937> lots_; // null: the trail decides
};

} // namespace explorer

#endif
