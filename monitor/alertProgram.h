// The program of the settings file that is run for each alert, as smartd and mdadm run theirs: the alert's fields are
// its environment. Bounded: four run at once, 64 wait, and one that takes longer than a minute is killed with what it
// has started. Nothing here waits for a program.
#ifndef OXT_MONITOR_ALERTPROGRAM_H
#define OXT_MONITOR_ALERTPROGRAM_H

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace oxttool {

using Variables = std::vector<std::pair<std::string, std::string>>;

class AlertProgram {
  public:
    using Clock = std::chrono::steady_clock;
    // `say` gets a sentence for each run that failed or was left out.
    explicit AlertProgram(std::function<void(const std::string &)> say,
                          Clock::duration longest = std::chrono::seconds(60))
        : say_(std::move(say)), longest_(longest) {}
    ~AlertProgram(); // kills what still runs

    void use(std::vector<std::string> command); // from the next run on; empty: nothing is run
    void run(Variables variables);
    // Ends and starts what is due; to be called after SIGCHLD and about once a second while isBusy().
    void look();
    bool isBusy() const { return !running_.empty() || !waiting_.empty(); }

  private:
    struct Run {
        pid_t pid;
        Clock::time_point end;
    };
    void start(const Variables &variables);

    std::function<void(const std::string &)> say_;
    const Clock::duration longest_; // of one run
    std::vector<std::string> command_;
    std::deque<Variables> waiting_;
    std::vector<Run> running_;
};

} // namespace oxttool

#endif
