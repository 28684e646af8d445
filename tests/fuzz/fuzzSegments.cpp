// Another process's three segments are anything. The first two bytes give the lengths of the first two.
#include <algorithm>
#include <cstring>

#include "promise.h"
#include "segments.h"
#include "shownText.h"

using namespace oxttool;

namespace {

// A block of its own for each segment: a byte read beside it is noticed.
std::string take(std::string_view &input, std::size_t size) {
    std::string block(input.substr(0, size));
    input.remove_prefix(block.size());
    block.shrink_to_fit();
    return block;
}

unsigned number(const std::string &bytes, std::size_t offset, std::size_t width) {
    unsigned value = 0;
    memcpy(&value, bytes.data() + offset, width);
    return value;
}

Segments::State expected(const std::string &config, const std::string &total, const std::string &records) {
    if (config.size() != 8 || total.size() != 4 || records.size() % 1840 != 0 || records.size() / 1840 > 65535)
        return Segments::WrongSize;
    if (config.find_first_not_of('\0') == std::string::npos)
        return Segments::NoDataYet;
    for (std::size_t at = 0; at < records.size(); at += 1840)
        if (number(records, at, 2) == 0)
            return Segments::NoDataYet;
    return number(total, 0, 2) == records.size() / 1840 ? Segments::Complete : Segments::Disagreeing;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    if (size < 2)
        return 0;
    std::string_view input(reinterpret_cast<const char *>(data + 2), size - 2);
    const std::string config = take(input, data[0] % 20), total = take(input, data[1] % 10);
    const std::string records = take(input, input.size());
    const Segments found = parseSegments(config, total, records);
    PROMISE(found.state == expected(config, total, records));
    PROMISE(found.problem.empty() == (found.state == Segments::Complete));
    PROMISE(found.fileSystems.size() == (found.state == Segments::Complete ? records.size() / 1840 : 0));
    if (found.state == Segments::Complete)
        PROMISE(found.cycle.seconds == number(config, 0, 2) && found.cycle.standard == number(config, 6, 2));
    std::size_t at = 0;
    for (const FileSystem &fs : found.fileSystems) {
        PROMISE(fs.index == std::to_string(number(records, at, 2)));
        PROMISE(fs.device == records.substr(at + 772, strnlen(records.data() + at + 772, 255)));
        PROMISE(fs.mountPoint == records.substr(at + 1312, strnlen(records.data() + at + 1312, 255)));
        PROMISE(fs.warningMiB == number(records, at + 1292, 4) && fs.fatalMiB == number(records, at + 1300, 4));
        const std::string shown = printable(fs.device);
        PROMISE(std::none_of(shown.begin(), shown.end(), [](char c) { return c >= 0 && c < ' '; }));
        at += 1840;
    }
    return 0;
}
