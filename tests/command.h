// The command oxtfsctl as it is built (OXTFSCTL), run as users run it.
#ifndef OXT_COMMAND_H
#define OXT_COMMAND_H

#include <chrono>
#include <string>
#include <thread>

#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include "agentDirectory.h"

struct Ended {
    int exit = -1; // -1: ended by a signal
    std::string out, err;
};

// `output`, a path, names the files that take what the command writes.
inline pid_t startShell(const std::string &words, const std::string &output, unsigned user = 0) {
    const std::string command = "exec " + words;
    const pid_t child = fork();
    if (child == 0) {
        dup2(creat((output + ".out").c_str(), 0600), STDOUT_FILENO);
        dup2(creat((output + ".err").c_str(), 0600), STDERR_FILENO);
        if (user == 0 || (setgroups(0, nullptr) == 0 && setgid(user) == 0 && setuid(user) == 0))
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    return child;
}

inline pid_t startCommand(const std::string &arguments, const std::string &output) {
    return startShell(OXTFSCTL " " + arguments, output);
}

inline Ended finishCommand(pid_t child, const std::string &output) {
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, fileContent(output + ".out"), fileContent(output + ".err")};
}

inline bool waitForOutput(const std::string &output, const std::string &text) {
    for (int i = 0; i < 1200; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(50)))
        if (fileContent(output + ".out").find(text) != std::string::npos)
            return true;
    return false;
}

#endif
