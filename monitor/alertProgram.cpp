#include "alertProgram.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace oxttool {

namespace {

constexpr std::size_t kAtOnce = 4;
constexpr std::size_t kMostWaiting = 64;

// What the program gets of this process's environment beside the alert.
constexpr const char *kKept[] = {"PATH", "LANG", "LC_ALL", "TZ"};

std::vector<std::string> linesOf(const Variables &variables) {
    std::vector<std::string> lines;
    for (const char *name : kKept)
        if (const char *value = std::getenv(name))
            lines.push_back(std::string(name) + "=" + value);
    for (const auto &[name, value] : variables)
        lines.push_back(name + "=" + value);
    return lines;
}

std::vector<char *> pointersTo(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// A group of its own, so that what it starts can be ended with it; no signal blocked or ignored; nothing on its input,
// and its output goes to the error stream, that is, to the journal. 0 or the error.
int spawn(pid_t &pid, std::vector<std::string> command, std::vector<std::string> environment) {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t files;
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_init(&files);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, STDERR_FILENO, STDOUT_FILENO);
    const auto arguments = pointersTo(command), variables = pointersTo(environment);
    const int error = posix_spawn(&pid, arguments[0], &files, &attributes, arguments.data(), variables.data());
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    return error;
}

std::string howItEnded(int status) {
    return WIFEXITED(status) ? "ended with " + std::to_string(WEXITSTATUS(status))
                             : "was ended by signal " + std::to_string(WTERMSIG(status));
}

} // namespace

AlertProgram::~AlertProgram() {
    for (const Run &run : running_) {
        kill(-run.pid, SIGKILL);
        waitpid(run.pid, nullptr, 0);
    }
}

void AlertProgram::use(std::vector<std::string> command) {
    command_ = std::move(command);
}

void AlertProgram::run(Variables variables) {
    if (command_.empty())
        return;
    if (waiting_.size() == kMostWaiting) {
        say_("too many alerts wait for " + command_.front() + ": it is not run for the oldest of them.");
        waiting_.pop_front();
    }
    waiting_.push_back(std::move(variables));
    look();
}

void AlertProgram::look() {
    const auto isOver = [this](const Run &run) {
        int status = 0;
        if (waitpid(run.pid, &status, WNOHANG) == run.pid) {
            if (status != 0)
                say_("the program for alerts, process " + std::to_string(run.pid) + ", " + howItEnded(status) + ".");
            return true;
        }
        if (Clock::now() >= run.end)
            kill(-run.pid, SIGKILL);
        return false;
    };
    running_.erase(std::remove_if(running_.begin(), running_.end(), isOver), running_.end());
    while (!waiting_.empty() && running_.size() < kAtOnce) {
        start(waiting_.front());
        waiting_.pop_front();
    }
}

void AlertProgram::start(const Variables &variables) {
    if (command_.empty())
        return;
    pid_t pid = 0;
    const int error = spawn(pid, command_, linesOf(variables));
    if (error != 0)
        say_("cannot run " + command_.front() + ": " + std::strerror(error) + ".");
    else
        running_.push_back({pid, Clock::now() + longest_});
}

} // namespace oxttool
