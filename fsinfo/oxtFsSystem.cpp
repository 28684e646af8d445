#include "oxtFsSystem.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mntent.h>
#include <sys/vfs.h>

#include "oxtFile.h"
#include "oxtMemory.h"
#include "oxtPaths.h"

namespace {

constexpr size_t LINE_SIZE = 64 * 1024; // two escaped paths and overlay options; a longer line is cut by getmntent_r

constexpr size_t READ_SIZE = 4096; // the kernel gives at most a page of these files per read; a smaller one costs more

struct CloseMounts {
    void operator()(FILE *fp) const { endmntent(fp); }
};
struct Free {
    void operator()(char *block) const { free(block); }
};

// A text that grows while it is written. Null when there was no memory for all of it.
struct Collector {
    char *text;
    size_t length;
    FILE *stream; // open_memstream(3)
};

bool openCollector(Collector *collector) {
    *collector = {};
    collector->stream = open_memstream(&collector->text, &collector->length);
    return collector->stream != nullptr;
}

char *closeCollector(Collector *collector) {
    const bool whole = ferror(collector->stream) == 0;
    if (fclose(collector->stream) == 0 && whole)
        return collector->text;
    free(collector->text);
    return nullptr;
}

// The mount table as texts one after the other, three an entry; null when it cannot be opened or kept.
char *readMountTexts(size_t *count) {
    const std::unique_ptr<char, Free> line(static_cast<char *>(malloc(LINE_SIZE)));
    char piece[READ_SIZE]; // longer than the table is open
    const std::unique_ptr<FILE, CloseMounts> table(setmntent(OXT_PATH_MTAB, "r"));
    Collector texts;
    if (line == nullptr || table == nullptr || !openCollector(&texts))
        return nullptr;
    setvbuf(table.get(), piece, _IOFBF, sizeof piece); // without a buffer it would not take the size
    struct mntent entry = {};
    while (getmntent_r(table.get(), &entry, line.get(), LINE_SIZE) != nullptr) {
        const char *const fields[] = {entry.mnt_fsname, entry.mnt_dir, entry.mnt_type};
        for (const char *field : fields)
            fwrite(field, 1, strlen(field) + 1, texts.stream);
        ++*count;
    }
    return closeCollector(&texts);
}

const char *nextText(const char *text) {
    return text + strlen(text) + 1;
}

bool readMounts(FsSystem *system) {
    size_t count = 0;
    char *texts = readMountTexts(&count);
    // The texts first: their block moves while it grows, so nothing may point into it before.
    FsMount *mounts = texts != nullptr ? static_cast<FsMount *>(calloc(count + 1, sizeof(FsMount))) : nullptr;
    if (mounts == nullptr) {
        free(texts);
        return false;
    }
    const char *text = texts;
    for (size_t i = 0; i < count; ++i) {
        mounts[i].fsname = text;
        mounts[i].dir = nextText(mounts[i].fsname);
        mounts[i].type = nextText(mounts[i].dir);
        text = nextText(mounts[i].type);
    }
    system->mounts = mounts;
    system->mountCount = count;
    system->mountText = texts;
    oxtIndexMake(&system->byDir, static_cast<int>(count), [&](int i) { return oxtHash(mounts[i].dir); });
    return true;
}

void readDrivers(FsSystem *system) {
    const OxtFile file(fopen(OXT_PATH_DEVICES, "r"));
    Collector text;
    if (file == nullptr || !openCollector(&text))
        return;
    char piece[1024];
    for (size_t got = 1; got > 0;) { // the kernel tells no size beforehand
        got = fread(piece, 1, sizeof piece, file.get());
        fwrite(piece, 1, got, text.stream);
    }
    system->drivers = closeCollector(&text);
    system->driversLength = text.length;
}

template <class Status>
int askOnce(int (*ask)(const char *, Status *), const char *path, Status *st, FsLast<Status> *last) {
    const bool kept = last != nullptr && path[0] != '\0' && strlen(path) < sizeof last->path;
    if (kept && strcmp(path, last->path) == 0) {
        *st = last->st;
        return 0;
    }
    const int ret = ask(path, st); // a failure is not kept: the next step asks again
    if (kept && ret == 0) {
        oxtCopyText(last->path, sizeof last->path, path);
        last->st = *st;
    }
    return ret;
}

} // namespace

int fsNextMountOn(const FsSystem *system, const char *dir, int after) {
    int i = after < 0 ? oxtIndexFirst(&system->byDir, oxtHash(dir)) : oxtIndexNext(&system->byDir, after);
    while (i >= 0 && strcmp(system->mounts[i].dir, dir) != 0)
        i = oxtIndexNext(&system->byDir, i);
    return i;
}

int fsStatfs(const FsSystem *system, const char *path, struct statfs *st) {
    return askOnce(statfs, path, st, system != nullptr ? &system->lastSpace : nullptr);
}

int fsStat(const FsSystem *system, const char *path, struct stat *st) {
    return askOnce(stat, path, st, system != nullptr ? &system->lastDevice : nullptr);
}

void fsSystemRead(FsSystem *system) {
    *system = {};
    system->mountsRead = readMounts(system);
    readDrivers(system);
}

void fsSystemFree(FsSystem *system) {
    for (DeviceInfo *list : system->driverLists)
        for (DeviceInfo *next = nullptr; list != nullptr; list = next) {
            next = list->next;
            free(list);
        }
    oxtIndexFree(&system->byDir);
    free(system->mounts);
    free(system->mountText);
    free(system->drivers);
    *system = {};
}
