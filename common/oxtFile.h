// Files of the agent directory that the provider makes or rewrites.
#ifndef OXT_FILE_H
#define OXT_FILE_H

#include <cstdio>
#include <memory>

struct OxtCloseFile {
    void operator()(FILE *fp) const { fclose(fp); }
};
typedef std::unique_ptr<FILE, OxtCloseFile> OxtFile;

// fopen(3) with the modes "r+", "w" and "wb" alone, for the owner only, and without emptying the file: a new file is of
// mode 0600 at most, a link in its place is not followed, and a child process does not inherit it. Null with errno set.
OxtFile oxtOpenFile(const char *path, const char *mode);

#endif
