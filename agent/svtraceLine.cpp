#include "svtraceLine.h"

#include "agentText.h"

#include <cstdio>
#include <cstring>

namespace agent {

namespace {

constexpr char kCutMark[] = "...[cut]\n";
constexpr std::size_t kMarkLength = sizeof kCutMark - 1;
constexpr std::size_t kWordMost = 128; // of a function's name or a tag

// Begins the line, up to the words of the caller, which may hold anything.
Text begin(TraceLine &line, const TraceMoment &when, int level) {
    line.bytes[0] = '\n';
    Text out = {line.bytes + 1, line.bytes + sizeof line.bytes - kMarkLength};
    putTime(out, when.time);
    const int numbers[] = {when.process, when.thread, level};
    for (const int number : numbers) {
        putBytes(out, " ", 1);
        putNumber(out, number);
    }
    putBytes(out, " ", 1);
    return out;
}

void putPoint(Text &out, const TracePoint &point) {
    putWord(out, point.function, kWordMost);
    putBytes(out, ":", 1);
    putNumber(out, point.sourceLine);
    putBytes(out, " ", 1);
    if (point.tag != nullptr && point.tag[0] != '\0') {
        putBytes(out, "[", 1);
        putWord(out, point.tag, kWordMost);
        putBytes(out, "] ", 2);
    }
}

// Apart from composeTrace, because its buffer is as large as the line and hardly ever needed.
__attribute__((noinline)) bool showVisibly(Text &out, char *body) {
    char raw[kTraceLineRoom];
    const auto length = static_cast<std::size_t>(out.at - body);
    std::memcpy(raw, body, length);
    out.at = body;
    return putVisible(out, raw, length);
}

// Ends the line; a cut one not in the midst of a UTF-8 sequence.
void finish(TraceLine &line, char *at, bool whole) {
    const auto isLast = [&at](int mask, int value) { return (static_cast<unsigned char>(at[-1]) & mask) == value; };
    while (!whole && isLast(0xC0, 0x80))
        --at;
    if (!whole && isLast(0xC0, 0xC0))
        --at;
    const char *const ending = whole ? "\n" : kCutMark;
    const std::size_t length = std::strlen(ending);
    std::memcpy(at, ending, length);
    line.length = static_cast<std::size_t>(at + length - (line.bytes + 1));
}

} // namespace

void composeTrace(TraceLine &line, const TraceMoment &when, const TracePoint &point, const char *format,
                  va_list arguments) {
    Text out = begin(line, when, point.level);
    char *const body = out.at;
    putPoint(out, point);
    bool whole = true;
    if (format != nullptr) {
        const auto room = static_cast<std::size_t>(out.end - out.at);
        // The terminating zero may lie where the mark would begin.
        const int length = std::vsnprintf(out.at, room + 1, format, arguments);
        if (length < 0) {
            whole = putWord(out, format, kTraceLineRoom);
        } else {
            whole = static_cast<std::size_t>(length) <= room;
            out.at += whole ? static_cast<std::size_t>(length) : room;
        }
    }
    if (needsCare(body, static_cast<std::size_t>(out.at - body)))
        whole = showVisibly(out, body) && whole;
    finish(line, out.at, whole);
}

void composeDropped(TraceLine &line, const TraceMoment &when, std::uint32_t lines) {
    constexpr TracePoint kPoint = {3, nullptr, "TraceLog", 0};
    Text out = begin(line, when, kPoint.level);
    putPoint(out, kPoint);
    putNumber(out, lines);
    putWord(out, lines == 1 ? " line could not be written" : " lines could not be written", kWordMost);
    finish(line, out.at, true);
}

} // namespace agent
