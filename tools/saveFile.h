// The provider's save file, told as the provider would take it: what is in it, whether it would load, what is odd.
#ifndef OXT_TOOL_SAVEFILE_H
#define OXT_TOOL_SAVEFILE_H

#include <optional>
#include <string>
#include <vector>

#include "records.h"

namespace oxttool {

struct SaveFile {
    struct Finding {
        bool rejected; // the provider starts afresh because of it; else it takes the file all the same
        std::string text;
    };
    std::string version;        // the first line, without its line feed
    std::optional<Cycle> cycle; // none where the file ends before it
    std::optional<unsigned> total;
    std::vector<FileSystem> fileSystems; // those whose records are whole
    std::vector<Finding> findings;

    bool loads() const;
};

// Pure: what the bytes of a save file say, whatever they are.
SaveFile parseSaveFile(ByteView bytes);

// The file at `path`, read until two readings in a row were the same, since a provider at work rewrites it. What the
// provider would not open is a finding. Throws an environment failure when it is missing or cannot be read.
SaveFile readSaveFile(const std::string &path);

} // namespace oxttool

#endif
