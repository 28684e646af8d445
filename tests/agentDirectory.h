// The agent directory of the build, which the tests fill and empty, and what stands in files.
#ifndef OXT_AGENT_DIRECTORY_H
#define OXT_AGENT_DIRECTORY_H

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

inline std::string agentPath(const std::string &name) {
    return OXT_TEST_AGENT_DIR + name;
}

inline std::string savePath() {
    return agentPath("data/oxtfssave.dat");
}

inline std::string fileContent(const std::string &path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

// Empties data/, work/ and log/. False, and nothing touched, when the directory is not the build's own: it may be the
// one of an installed agent.
inline bool emptyAgentDirectory() {
    if (std::string(OXT_TEST_AGENT_DIR).rfind(OXT_TEST_BINARY_DIR, 0) != 0)
        return false;
    for (const char *part : {"data", "work", "log"}) {
        std::filesystem::remove_all(agentPath(part));
        std::filesystem::create_directories(agentPath(part));
    }
    return true;
}

#endif
