#include "oxtIndex.h"

#include <cstdlib>
#include <cstring>

unsigned oxtHash(const char *text) { // FNV-1a
    unsigned hash = 2166136261U;
    for (; *text != '\0'; ++text)
        hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619U;
    return hash;
}

bool oxtIndexAllocate(OxtIndex *index, int count) {
    *index = {count, 0, nullptr, nullptr};
    size_t heads = 16;
    while (heads < static_cast<size_t>(count))
        heads *= 2;
    index->heads = static_cast<int *>(malloc((heads + static_cast<size_t>(count)) * sizeof(int)));
    if (index->heads == nullptr)
        return false;
    memset(index->heads, -1, heads * sizeof(int));
    index->mask = static_cast<unsigned>(heads - 1);
    index->next = index->heads + heads;
    return true;
}

void oxtIndexFree(OxtIndex *index) {
    free(index->heads);
    *index = {};
}
