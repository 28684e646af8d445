// Texts that are compared with a file of tests/golden.
#ifndef OXT_GOLDEN_H
#define OXT_GOLDEN_H

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "agentDirectory.h"

// To regenerate the files after an intended change, and to read the difference before it is kept:
//     OXT_UPDATE_GOLDEN=1 ctest && git diff tests/golden
inline void expectGolden(const std::string &name, const std::string &text) {
    const std::string path = OXT_TEST_SOURCE_DIR "golden/" + name;
    if (std::getenv("OXT_UPDATE_GOLDEN") != nullptr)
        std::ofstream(path, std::ios::binary) << text;
    const std::string golden = fileContent(path);
    const auto [ours, theirs] = std::mismatch(text.begin(), text.end(), golden.begin(), golden.end());
    const auto rest = [](const std::string &whole, std::string::const_iterator at) {
        return whole.substr(whole.rfind('\n', static_cast<std::size_t>(at - whole.begin())) + 1, 300);
    };
    EXPECT_TRUE(text == golden) << path << " differs in line " << 1 + std::count(text.begin(), ours, '\n')
                                << "\n--- expected\n"
                                << rest(golden, theirs) << "\n--- is\n"
                                << rest(text, ours);
}

// A golden file that is the script, too: each line behind "$ " is run, and the lines from there to the next one or to
// an empty line are its answer, in which "~" stands for an empty one. The rest are remarks.
inline void expectReplay(const std::string &name, const std::function<std::string(const std::string &)> &run) {
    std::istringstream script(fileContent(OXT_TEST_SOURCE_DIR "golden/" + name));
    std::string all;
    const auto answer = [&run](const std::string &command) {
        std::istringstream lines(run(command));
        std::string text;
        for (std::string line; std::getline(lines, line);)
            text += (line.empty() ? "~" : line) + "\n";
        return text;
    };
    bool answered = false;
    for (std::string line; std::getline(script, line);) {
        const bool command = line.rfind("$ ", 0) == 0;
        answered = answered && !command && !line.empty();
        if (!answered)
            all += line + "\n" + (command ? answer(line.substr(2)) : "");
        answered = answered || command;
    }
    expectGolden(name, all);
}

#endif
