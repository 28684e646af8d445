// What a whole command costs, beside the peers that answer the same question: oxtfsctl list, df -P, findmnt --df, over
// the machine's own mounts. The time is the processor time of the process, its exec included, since a busy machine
// makes the time on the clock mean nothing.

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

extern char **environ;

namespace {

double seconds(const timeval &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// The processor time of one run; below 0 when the command failed.
double runOnce(const std::vector<const char *> &command) {
    std::vector<char *> arguments;
    for (const char *argument : command)
        arguments.push_back(const_cast<char *>(argument));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    const int spawned = posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage = {};
    if (spawned != 0 || wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void process(benchmark::State &state, const std::vector<const char *> &command) {
    for (auto _ : state) {
        const double time = runOnce(command);
        if (time < 0) {
            state.SkipWithError("the command failed");
            break;
        }
        state.SetIterationTime(time);
    }
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    const struct {
        const char *name;
        std::vector<const char *> command;
    } all[] = {{"oxtfsctl", {OXTFSCTL, "list"}}, {"df", {"df", "-P"}}, {"findmnt", {"findmnt", "--df"}}};
    for (const auto &row : all)
        benchmark::RegisterBenchmark(row.name, process, row.command)->UseManualTime()->Unit(benchmark::kMicrosecond);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
