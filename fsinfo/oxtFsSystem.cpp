#include "oxtFsSystem.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mntent.h>

#include "oxtPaths.h"

namespace {

constexpr size_t LINE_SIZE = 64 * 1024; // two escaped paths and overlay options; a longer line is cut by getmntent_r

// A growing block of bytes. After a failure `data` is null and stays so.
struct Bytes {
    char *data;
    size_t length;
    size_t room;
};

bool append(Bytes *bytes, const char *from, size_t length) {
    if (length > bytes->room - bytes->length) {
        const size_t room = (bytes->room + length) * 2;
        char *data = static_cast<char *>(realloc(bytes->data, room));
        if (data == nullptr)
            return false;
        bytes->data = data;
        bytes->room = room;
    }
    memcpy(bytes->data + bytes->length, from, length);
    bytes->length += length;
    return true;
}

struct CloseMounts {
    void operator()(FILE *fp) const { endmntent(fp); }
};
struct CloseFile {
    void operator()(FILE *fp) const { fclose(fp); }
};
struct Free {
    void operator()(char *block) const { free(block); }
};

// The mount table as texts one after the other, three an entry. False when it cannot be opened or kept.
bool readMountTexts(Bytes *texts, size_t *count) {
    const std::unique_ptr<char, Free> line(static_cast<char *>(malloc(LINE_SIZE)));
    const std::unique_ptr<FILE, CloseMounts> table(setmntent(OXT_PATH_MTAB, "r"));
    if (line == nullptr || table == nullptr)
        return false;
    struct mntent entry = {};
    while (getmntent_r(table.get(), &entry, line.get(), LINE_SIZE) != nullptr) {
        const char *const fields[] = {entry.mnt_fsname, entry.mnt_dir, entry.mnt_type};
        for (const char *field : fields)
            if (!append(texts, field, strlen(field) + 1))
                return false;
        ++*count;
    }
    return true;
}

const char *nextText(const char *text) {
    return text + strlen(text) + 1;
}

bool readMounts(FsSystem *system) {
    Bytes texts = {};
    size_t count = 0;
    bool ok = readMountTexts(&texts, &count);
    FsMount *mounts = nullptr;
    if (ok && count > 0) {
        mounts = static_cast<FsMount *>(calloc(count, sizeof *mounts));
        ok = mounts != nullptr;
    }
    if (!ok) {
        free(texts.data);
        return false;
    }
    const char *text = texts.data;
    for (size_t i = 0; i < count; ++i) {
        mounts[i].fsname = text;
        mounts[i].dir = nextText(mounts[i].fsname);
        mounts[i].type = nextText(mounts[i].dir);
        text = nextText(mounts[i].type);
    }
    system->mounts = mounts;
    system->mountCount = count;
    system->mountText = texts.data;
    return true;
}

void readDrivers(FsSystem *system) {
    const std::unique_ptr<FILE, CloseFile> file(fopen(OXT_PATH_DEVICES, "r"));
    if (file == nullptr)
        return;
    Bytes text = {};
    char piece[1024];
    bool ok = true;
    for (size_t got = 1; ok && got > 0;) {
        got = fread(piece, 1, sizeof piece, file.get());
        ok = append(&text, piece, got);
    }
    if (!ok || !append(&text, "", 1)) {
        free(text.data);
        return;
    }
    system->drivers = text.data;
    system->driversLength = text.length - 1;
}

} // namespace

void fsSystemRead(FsSystem *system) {
    *system = {};
    system->mountsRead = readMounts(system);
    readDrivers(system);
}

void fsSystemFree(FsSystem *system) {
    free(system->mounts);
    free(system->mountText);
    free(system->drivers);
    *system = {};
}
