#include "oxtMemory.h"

#include <climits>
#include <cstring>

namespace {

void *allocate(const char *function, int size, bool zeroed) {
    OXT_TRACE_AS(function, "_IN_ size=[%d]", size);
    OXT_REQUIRE_AS(function, size > 0, nullptr, "_OUT_ param(size=%d) Failure!!", size);
    void *adr = malloc(static_cast<size_t>(size));
    OXT_REQUIRE_AS(function, adr != nullptr, nullptr, "_OUT_ adr is Null Failure!! errno=[%d]", errno);
    if (zeroed)
        memset(adr, 0, static_cast<size_t>(size));
    OXT_TRACE_AS(function, "_OUT_ adr=[%p]", adr);
    return adr;
}

} // namespace

void *memalloc(int size) {
    return allocate(__func__, size, true);
}

void *oxtAllocateRaw(int size) {
    return allocate("memalloc", size, false);
}

void oxtCopyText(char *to, size_t size, const char *from) {
    const size_t length = strnlen(from, size - 1);
    memcpy(to, from, length);
    to[length] = '\0';
}

void *memrealloc(void *ptr, int size) {
    OXT_TRACE("_IN_ realloc size=[%d] ptr=[%p]", size, ptr);
    OXT_REQUIRE(size > 0, nullptr, "_OUT_ param(size) Failure!!");
    void *adr = realloc(ptr, static_cast<size_t>(size));
    if (adr == nullptr) {
        const int error = errno;
        free(ptr);
        OXT_FAIL(nullptr, "_OUT_ adr is Null Failure!! errno=[%d]", error);
    }
    OXT_TRACE("_OUT_ adr=[%p]", adr);
    return adr;
}

int oxtAreaSize(const DatInfo *area) {
    if (area->datSize <= 0 || area->datNum <= 0 || area->datNum > INT_MAX / area->datSize)
        return 0;
    return area->datSize * area->datNum;
}
