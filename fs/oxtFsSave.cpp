#include "oxtFsSave.h"

#include <cstring>
#include <unistd.h>

#include "oxtFile.h"
#include "oxtFsTurn.h"
#include "oxtPaths.h"

namespace {

size_t areaBytes(const DatInfo &area) {
    return area.datNum > 0 && area.datAdr != nullptr ? static_cast<size_t>(oxtAreaSize(&area)) : 0;
}

// The file's bytes in a new block that the caller frees; null with the failure traced.
char *makeImage(const char *function, const DatInfo ins[], int *size) {
    *size = OXT_DAT_FS_VERSIZE;
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        if (ins[cid].datNum <= 0)
            continue;
        OXT_TRACE_AS(function, "datCur[%d] Size=[%d]*Num=[%d]", cid, ins[cid].datSize, ins[cid].datNum);
        *size += static_cast<int>(areaBytes(ins[cid]));
    }
    OXT_TRACE_AS(function, "outputSize=[%d]", *size);
    char *image = static_cast<char *>(oxtAllocateRaw(*size));
    OXT_REQUIRE_AS(function, image != nullptr, nullptr, "_OUT_ outputAdr alloc Failure!!");
    memcpy(image, OXT_DAT_FS_VERNAME, OXT_DAT_FS_VERSIZE);
    char *at = image + OXT_DAT_FS_VERSIZE;
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        const size_t bytes = areaBytes(ins[cid]);
        if (bytes > 0)
            memcpy(at, ins[cid].datAdr, bytes);
        at += bytes;
    }
    return image;
}

FsSaved writeSaveFile(const char *function, const FsSnapshot *snapshot) {
    // Freed meanwhile: nothing may replace what was saved of it.
    OXT_REQUIRE_AS(function, snapshot != nullptr && fsConf(snapshot->areas) != nullptr, FS_SAVE_NOT_OPENED,
                   "_OUT_ param(instFs[OXT_CID_FS_CONF].datAdr) Failure!!");
    OXT_TRACE_AS(function, "fopen[%s]", OXT_PATH_SAVE);
    const OxtFile fp = oxtOpenFile(OXT_PATH_SAVE, "wb"); // which does not empty it: see fsPutBinFile
    OXT_REQUIRE_AS(function, fp != nullptr, FS_SAVE_NOT_OPENED, "_OUT_ fopen Failure!! err=[%d]", errno);
    setvbuf(fp.get(), nullptr, _IONBF, 0); // it is written in one piece
    OXT_TRACE_AS(function, "fsPutBinFile()");
    const int ret = fsPutBinFile(fp.get(), snapshot->areas);
    OXT_TRACE_AS(function, "fclose");
    if (ret != 0)
        return FS_SAVE_NOT_WRITTEN;
    fsNoteSaved(snapshot);
    return FS_SAVED;
}

} // namespace

int fsPutBinFile(FILE *fp, const DatInfo ins[]) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(fp != nullptr, -1, "_OUT_ param(fp) Failure!!");
    OXT_REQUIRE(ins != nullptr, -1, "_OUT_ param(ins) Failure!!");
    int size = 0;
    OXT_TRACE("- to File Info -");
    fsLogDumpInstanceDat(OXT_DUMP_ALL, ins);
    char *outputAdr = makeImage(__func__, ins, &size);
    if (outputAdr == nullptr)
        return -1;
    const bool written = fwrite(outputAdr, 1, static_cast<size_t>(size), fp) == static_cast<size_t>(size) &&
                         fflush(fp) == 0; // a full disk shows when the buffer is flushed
    if (!written)
        OXT_TRACE_FAIL("_OUT_ fwrite Failure!! err=[%d]", errno);
    OXT_MEMFREE(outputAdr);
    if (!written)
        return -1;
    if (ftruncate(fileno(fp), size) != 0)
        OXT_TRACE_FAIL("ftruncate Failure!! err=[%d]", errno); // readers ignore what lies behind
    OXT_TRACE("_OUT_");
    return 0;
}

int fsGetBinFile(FILE *fp, DatInfo ins[]) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(fp != nullptr, -1, "_OUT_ param(fp) Failure!!");
    OXT_REQUIRE(ins != nullptr, -1, "_OUT_ param(ins) Failure!!");
    char cDatVar[OXT_DAT_FS_VERSIZE + 1] = {};
    const size_t got = fread(cDatVar, 1, OXT_DAT_FS_VERSIZE, fp);
    OXT_TRACE("cDatVar=[%s]", cDatVar);
    OXT_REQUIRE(got == OXT_DAT_FS_VERSIZE, -1, "_OUT_ fread[OXT_DAT_FS_VERNAME] Failure!!");
    const bool conf = getDatFromBinFile(fp, 1, &ins[OXT_CID_FS_CONF]) == 0;
    OXT_REQUIRE(conf, -1, "_OUT_ getDatFromBinFile[CONF] Failure!!");
    const bool tnum = getDatFromBinFile(fp, 1, &ins[OXT_CID_FS_TNUM]) == 0;
    OXT_REQUIRE(tnum, -1, "_OUT_ getDatFromBinFile[TNUM] Failure!!");
    const bool prov = getDatFromBinFile(fp, fsTnum(ins)->FileSystemTotalNumber, &ins[OXT_CID_FS_PROV]) == 0;
    OXT_REQUIRE(prov, -1, "_OUT_ getDatFromBinFile[PROV] Failure!!");
    fsEndTexts(&ins[OXT_CID_FS_PROV]);
    OXT_TRACE("- from File Info -");
    fsLogDumpInstanceDat(OXT_DUMP_ALL, ins);
    OXT_TRACE("_OUT_");
    return 0;
}

int getDatFromBinFile(FILE *fp, int count, DatInfo *area) {
    OXT_TRACE("_IN_num=[%d]", count);
    OXT_REQUIRE(fp != nullptr, -1, "_OUT_ param(fp) Failure!!");
    OXT_REQUIRE(count >= 0, -1, "_OUT_ param(cnt) Failure!!");
    OXT_REQUIRE(area != nullptr, -1, "_OUT_ param(datInfo) Failure!!");
    if (count > 0) {
        if (count != area->datNum || area->datAdr == nullptr) { // a block of the right size is read over
            area->datNum = count;
            area->datAdr = memrealloc(area->datAdr, oxtAreaSize(area));
            OXT_REQUIRE(area->datAdr != nullptr, -1, "_OUT_ datInfo realloc Failure!!");
        }
        const size_t size = static_cast<size_t>(oxtAreaSize(area));
        const size_t got = fread(area->datAdr, 1, size, fp);
        OXT_REQUIRE(got == size, -1, "_OUT_ fread Failure!! err=[%d]", errno);
    } else if (area->datNum != 0) {
        area->datNum = 0;
        OXT_MEMFREE(area->datAdr);
    }
    OXT_TRACE("_OUT_ [%p]", area->datAdr);
    return 0;
}

FsSaved fsSaveStore(const char *function, unsigned version, long long spent) {
    OXT_REQUIRE_AS(function, fsTurnBegin(FS_SAVE, spent) == 0, FS_SAVE_NOT_OPENED, "_OUT_ fsTurnBegin() Failure!!");
    const FsSnapshot *snapshot = fsTake(); // before the question: whoever takes the store down later saves after this
    const FsFate fate = fsFateOf(version);
    FsSaved saved = FS_SAVED;
    if (fate != FS_FATE_SAVED)
        saved = writeSaveFile(function, fate == FS_FATE_KEPT ? snapshot : nullptr);
    fsDrop(snapshot);
    fsTurnEnd(FS_SAVE);
    return saved;
}
