// The save file: a version line, then the raw records of the three classes (docs/formats.md shows the bytes).
#ifndef OXT_FS_SAVE_H
#define OXT_FS_SAVE_H

#include <cstdio>

#include "oxtFsState.h"

// 18 bytes in the file, without a closing zero.
inline constexpr char OXT_DAT_FS_VERNAME[] = "# Version=1.0.0.0\n";
constexpr size_t OXT_DAT_FS_VERSIZE = sizeof OXT_DAT_FS_VERNAME - 1;
static_assert(OXT_DAT_FS_VERSIZE == 18, "storage format");

// Writes all areas over a stream open for writing at its start, and cuts the file behind them: 0, or -1 with nothing or
// a part written. The file keeps its old bytes until they are overwritten: a writer that dies leaves whole records, and
// a full disk does not cost the settings of a file that does not grow.
int fsPutBinFile(FILE *fp, const DatInfo ins[]);
// Reads all areas from a stream open at its start, whatever its version line says: 0, or -1 with the areas read so far
// filled. Texts are ended inside their arrays; any values are taken.
int fsGetBinFile(FILE *fp, DatInfo ins[]);
// Reads so many records into an area, which is resized first: 0 or -1.
int getDatFromBinFile(FILE *fp, int count, DatInfo *area);

// Rewrites the save file with the snapshot of the moment, one writer at a time: so the last one to write has the
// newest. A store that was taken down since the caller's version was installed is not saved again: the result is
// whether it was before. Traced in the caller's name, but for a failed write, whose line is the caller's.
// `spent`: see fsTurnBegin.
enum FsSaved { FS_SAVED, FS_SAVE_NOT_OPENED, FS_SAVE_NOT_WRITTEN };
FsSaved fsSaveStore(const char *function, unsigned version, long long spent = 0);

#endif
