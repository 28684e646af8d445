// Who may do what now: the turns that one thread has at a time, and the gate that counts the requests inside.
//
// One mutex, held for moments, guards all of it. Every wait is bounded by 3 seconds of a clock that cannot be set.
#ifndef OXT_FS_TURN_H
#define OXT_FS_TURN_H

#include <atomic>

enum FsTurn {
    FS_LIFE,    // a build, a start, a stop or a clean-up
    FS_PUBLISH, // a replacement: the segments, then the snapshot (oxtFsState.h); never across statfs, a send or a save
    FS_SAVE,    // a write of the save file
    FS_TURN_COUNT
};
// 0 with the turn, or -1 once 3 seconds are over, of which the caller has spent so many milliseconds already. Whoever
// holds one takes only those below it in the list: two threads that took them in different orders would wait for each
// other until both give up.
int fsTurnBegin(FsTurn turn, long long spent = 0);
void fsTurnEnd(FsTurn turn);

// "first" is the name that the trace gives this state.
enum FsGateState : int { OXT_FS_UNINITIALISED = 0, OXT_FS_IN_PROGRESS = 1, OXT_FS_INITIALISED = 2 };
extern std::atomic<int> gfs_first; // OXT_FS_...; changed here only

// The state that the gate had. OXT_FS_INITIALISED: the request is inside. OXT_FS_UNINITIALISED: the gate is closed, and
// the caller builds the store and says how that went. OXT_FS_IN_PROGRESS: somebody else has closed it.
int fsGateEnter();
void fsGateBuilt(bool ok); // opens it; the caller is inside when it went well
void fsGateLeave();
// The state that an open gate has: OXT_FS_INITIALISED, or OXT_FS_UNINITIALISED once the store is taken down.
int fsGateState();
void fsGateForget(); // the store is taken down

// Closes the gate, waits until the requests inside have left, and takes the life turn: 0, or -1 with all as it was.
int fsAloneBegin();
void fsAloneEnd();

#endif
