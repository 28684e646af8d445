// Whole requests from the client's call to the answer, with the trace log between: compared with tests/golden/*.txt.
//
// In a file, "(function)" begins a function's lines, which are indented by the depth of the calls; "!" marks a line of
// the failure level. What differs from run to run is replaced by a word: POINTER, KEY (of shared memory), ID, AGENT/.
#include "golden.h"
#include "providerTest.h"

#include <algorithm>
#include <chrono>
#include <regex>
#include <sstream>
#include <thread>

using namespace oxthost;

namespace {

class Transcript : public ProviderTest {
  protected:
    void SetUp() override {
        ProviderTest::SetUp();
        // A log of an earlier test in this process is noticed to be gone when a new second begins.
        using namespace std::chrono;
        const auto now = system_clock::now().time_since_epoch();
        std::this_thread::sleep_for(seconds(1) - now % seconds(1) + milliseconds(20));
        system.setMounts("proc /proc proc rw 0 0\n");
    }

    // The log's lines since the last call, as a golden file has them.
    std::string trace() {
        static const std::regex line(R"(^\S+ \d+ \d+ (\d) (\w+):\d+ (.*)$)");
        std::istringstream log(fileContent(agentPath("log/oxtfs.log")).substr(read_));
        std::string all, last;
        int depth = 0;
        for (std::string text; std::getline(log, text); read_ += text.size() + 1) {
            std::smatch parts;
            if (!std::regex_match(text, parts, line)) {
                ADD_FAILURE() << text;
                continue;
            }
            const std::string body = parts[3];
            if (body.rfind("_IN_", 0) == 0)
                ++depth;
            const std::string indent(static_cast<std::size_t>(2 * depth), ' ');
            if (parts[2] != last)
                all += indent.substr(std::min<std::size_t>(2, indent.size())) + "(" + parts[2].str() + ")\n";
            last = parts[2];
            all += indent + (parts[1] == "0" ? "" : "! ") + normal(body) + "\n";
            if (body.rfind("_OUT_", 0) == 0)
                --depth;
        }
        EXPECT_EQ(depth, 0) << "each function's one entry line has one exit line";
        return all;
    }

  private:
    static std::string normal(std::string text) {
        static const std::pair<std::regex, const char *> rules[] = {
            {std::regex(R"(0x[0-9a-f]{9,}|\(nil\))"), "POINTER"},
            {std::regex(R"(shmget\(0x[0-9a-f]{8})"), "shmget(KEY"},
            {std::regex(R"(shmId=\[\d+\])"), "shmId=[ID]"},
            {std::regex(R"(^(_OUT_ ret=|_IN_)\[\d{4,}\])"), "$1[ID]"}, // of shmCreate and shmDestroy
        };
        for (std::size_t at; (at = text.find(OXT_TEST_AGENT_DIR)) != std::string::npos;)
            text.replace(at, sizeof OXT_TEST_AGENT_DIR - 1, "AGENT/");
        for (const auto &[pattern, word] : rules)
            text = std::regex_replace(text, pattern, word);
        return text;
    }
    std::size_t read_ = 0;
};

TEST_F(Transcript, FirstRequestAndASetting) {
    system.addFileSystem("/dev/mapper/root", 253, "/", "ext4", 10000, 900);
    load();
    std::string transcript = "The host loads the provider.\n\n" + trace();
    const Reply all = enumerate(kFs);
    transcript +=
        "\nEnumInstances OXT_FileSystem\n\n" + trace() + "\nanswers " + showStatus(all) + "\n" + showInstances(all);
    expectGolden("firstRequest.txt", transcript);

    const Reply set = call(kFs, "SetWarningThreshold", {{"Index", text("1")}, {"WarningThreshold", text("800")}});
    transcript = "InvokeMethod OXT_FileSystem SetWarningThreshold Index='1' WarningThreshold='800'\n\n" + trace() +
                 "\nanswers " + showStatus(set) + "\n";
    expectGolden("setThreshold.txt", transcript);
}

} // namespace
