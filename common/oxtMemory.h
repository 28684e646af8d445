// Traced memory and the class data areas.
#ifndef OXT_MEMORY_H
#define OXT_MEMORY_H

#include <cstdlib>

#include "oxtTrace.h"

// The classes that the store keeps; indices into its descriptor arrays.
enum OxtClassId { OXT_CID_FS_CONF = 0, OXT_CID_FS_TNUM = 1, OXT_CID_FS_PROV = 2, OXT_CID_FS_COUNT = 3 };
constexpr int OXT_CID_FS_SIZES[OXT_CID_FS_COUNT] = {8, 4, 1840}; // bytes of one record of each

// One class's records in process memory.
struct DatInfo {
    int datSize;  // bytes of one record
    int datNum;   // records; whoever calls reallocDatArea sets it first, and until then the block may be smaller
    void *datAdr; // owned; null while nothing is allocated
};

// A zero-filled block, or null for a size below 1 or without memory. Freed with OXT_MEMFREE.
void *memalloc(int size);
// The same without the zeros, for a block that the caller fills from end to end.
void *oxtAllocateRaw(int size);
// The resized block; new bytes are not zeroed. Null for a size below 1, the old block untouched; null without memory,
// the old block freed, since callers assign the result straight to their pointer.
void *memrealloc(void *ptr, int size);

// A text with its zero, cut to the buffer.
void oxtCopyText(char *to, size_t size, const char *from);

// datSize * datNum; 0 if one of them is not positive, or the product is greater than an int.
int oxtAreaSize(const DatInfo *area);

// Frees a buffer that the function owns and forgets it.
#define OXT_MEMFREE(pointer) OXT_MEMFREE_IN(__func__, pointer)
#define OXT_MEMFREE_IN(function, pointer)                                                                              \
    do {                                                                                                               \
        if ((pointer) != nullptr) {                                                                                    \
            OXT_TRACE_AS(function, "memfree(%p)", static_cast<void *>(pointer));                                       \
            free(pointer);                                                                                             \
            (pointer) = nullptr;                                                                                       \
        } else {                                                                                                       \
            OXT_TRACE_AS(function, "memfree already NULL");                                                            \
        }                                                                                                              \
    } while (0)

#endif
