// A settings file of anything is taken whole or refused with its line.
#include "failure.h"
#include "promise.h"
#include "rules.h"

using namespace oxttool;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    try {
        const Settings settings = parseSettings({reinterpret_cast<const char *>(data), size}, "FILE");
        PROMISE(!settings.cycleSeconds || (*settings.cycleSeconds >= 10 && *settings.cycleSeconds <= 3600));
        FileSystem fs;
        fs.driveType = 0;
        fs.sizeMiB = 1000;
        for (const Outcome &outcome : outcomesOf(settings.rules, fs))
            PROMISE(!outcome.value || (*outcome.value <= fs.sizeMiB && outcome.line > 0));
    } catch (const Failure &failure) {
        PROMISE(std::string(failure.what()).rfind("FILE:", 0) == 0);
    }
    return 0;
}
