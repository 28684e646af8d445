// The keys of segments: a key file gives one through ftok(3), and another file another where that is taken.
#ifndef OXT_SHM_KEY_H
#define OXT_SHM_KEY_H

// A new segment of so many bytes, mode 0600, under a key of the file "<base><class digit>". Its id (above 0), or -1
// with errno; what went wrong is traced in the name of `function`.
int oxtNewSegment(const char *function, const char *fnm, int cid, int size);

#endif
