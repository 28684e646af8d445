// The mount table and the driver list: setmntent(3) and fopen(3) of the two system files.
#include "calls.h"

#include <cstring>

#include <mntent.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace oxtmachine;

namespace {

using Open = FILE *(const char *, const char *);

// A system file, and what stands for it in a machine.
struct Table {
    const char *file;
    std::string Facts::*text;
    int Facts::*error;
    std::string (*content)(const Machine &);
};
constexpr Table kMounts = {"/etc/mtab", &Facts::mountText, &Facts::mountsError,
                           [](const Machine &m) { return m.mountTableText(); }};
constexpr Table kDrivers = {"/proc/devices", &Facts::drivers, &Facts::driversError,
                            [](const Machine &m) { return m.drivers; }};

// A stream over a text; null with errno when the file that it stands for cannot be opened.
FILE *openText(const std::string &text, int error) {
    if (error != 0) {
        errno = error;
        return nullptr;
    }
    const int fd = memfd_create("machine", MFD_CLOEXEC); // which takes all in one write
    if (fd < 0 || pwrite(fd, text.data(), text.size(), 0) < 0)
        return nullptr;
    return fdopen(fd, "r");
}

// Keeps what the real system's file says, unless it was asked before.
void note(const Table &table) {
    int error = 0;
    withMachine([&](const Machine &m) { error = m.*table.error; });
    if (error != Machine::kUnasked)
        return;
    std::string text;
    FILE *const file = realFunction<Open>("fopen")(table.file, "re");
    error = file == nullptr ? errno : 0;
    for (char piece[4096]; file != nullptr;) {
        const std::size_t got = std::fread(piece, 1, sizeof piece, file);
        text.append(piece, got);
        if (got == 0)
            break;
    }
    if (file != nullptr)
        std::fclose(file);
    withMachine([&](Machine &m) {
        m.*table.text = text;
        m.*table.error = error;
    });
}

// A system file as the machine has it. False when the real system's is to be opened, or that of a redirection.
bool openTable(const char *file, const Table &table, FILE **stream) {
    if (std::strcmp(file, table.file) != 0 || placed(file) != file)
        return false;
    const Rest rest = restOfCalls();
    if (rest == Rest::Noted)
        note(table);
    std::string text;
    int error = ENOENT;
    const bool known = withMachine([&](const Machine &m) {
        text = table.content(m);
        error = m.*table.error;
    });
    if (!known && rest == Rest::System)
        return false;
    *stream = openText(text, error);
    return true;
}

// What the real system opens for a path; null where there is nothing but the machine and its agent's directory.
const char *realPath(std::string &path) {
    bool inside = false;
    path = placed(path.c_str(), &inside);
    if (inside || restOfCalls() == Rest::System)
        return path.c_str();
    errno = ENOENT;
    return nullptr;
}

} // namespace

extern "C" FILE *OXT_CALL(setmntent)(const char *file, const char *mode) noexcept {
    static const auto real = realFunction<Open>("setmntent");
    FILE *stream = nullptr;
    if (std::strcmp(file, kMounts.file) == 0 && struck(Call::Setmntent))
        return nullptr;
    if (openTable(file, kMounts, &stream))
        return stream;
    std::string path = file;
    const char *const opened = realPath(path);
    return opened != nullptr ? real(opened, mode) : nullptr;
}

// ThreadSanitizer does not see the C library's own closing in it: the descriptor's next user would race with its last.
extern "C" int OXT_CALL(endmntent)(FILE *stream) noexcept {
    std::fclose(stream);
    return 1;
}

extern "C" FILE *OXT_CALL(fopen)(const char *file, const char *mode) {
    static const auto real = realFunction<Open>("fopen");
    FILE *stream = nullptr;
    if (openTable(file, kDrivers, &stream))
        return stream;
    std::string path = file;
    const char *const opened = realPath(path);
    return opened != nullptr ? real(opened, mode) : nullptr;
}
