// A hash index over positions 0 to count-1. It replaces a search from the first position to the last: it visits, in
// ascending order, only the positions whose hash matches. An index that was not made (there was no memory, or a trace
// has to show each step) visits all of them, so a caller compares what it finds in any case.
#ifndef OXT_INDEX_H
#define OXT_INDEX_H

struct OxtIndex {
    int count;
    unsigned mask; // of the heads
    int *heads;    // first position of each hash, -1 for none; null when the index was not made
    int *next;     // the following position of the same hash, -1 at the end
};

unsigned oxtHash(const char *text);

bool oxtIndexAllocate(OxtIndex *index, int count); // false without memory: the index visits all
void oxtIndexFree(OxtIndex *index);

// hashOf(position) gives the hash under which a position is found again.
template <typename HashOf> void oxtIndexMake(OxtIndex *index, int count, HashOf hashOf) {
    if (!oxtIndexAllocate(index, count))
        return;
    for (int position = count - 1; position >= 0; --position) { // backwards, so that each chain ascends
        int &head = index->heads[hashOf(position) & index->mask];
        index->next[position] = head;
        head = position;
    }
}

inline int oxtIndexFirst(const OxtIndex *index, unsigned hash) {
    return index->heads != nullptr ? index->heads[hash & index->mask] : index->count > 0 ? 0 : -1;
}
inline int oxtIndexNext(const OxtIndex *index, int position) {
    return index->heads != nullptr ? index->next[position] : position + 1 < index->count ? position + 1 : -1;
}

#endif
