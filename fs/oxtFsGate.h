// Who may use the store now: its initialisation state and the requests inside.
//
// A request enters when the store is built and leaves at its end. Whoever builds the store or takes it down closes the
// gate first: new requests then wait, and those inside are waited for. So no request ever sees a store that is half
// built or half gone. Every wait here is bounded by 3 seconds.
#ifndef OXT_FS_GATE_H
#define OXT_FS_GATE_H

#include <atomic>

enum FsFirst : int { OXT_FS_UNINITIALISED = 0, OXT_FS_IN_PROGRESS = 1, OXT_FS_INITIALISED = 2 };
extern std::atomic<int> gfs_first; // OXT_FS_...; changed by the gate only

enum FsCaller { FS_FROM_REQUEST, FS_FROM_CLEANUP }; // the caller is inside the gate, or not

// OXT_FS_INITIALISED: the caller is inside. OXT_FS_UNINITIALISED: the state is now OXT_FS_IN_PROGRESS, and the caller
// builds the store and says how it went with fsGateBuilt. OXT_FS_IN_PROGRESS: neither, try again.
int fsGateEnter();
void fsGateBuilt(bool ok); // the caller is inside when it went well
void fsGateLeave();

// Closes the gate: 0 with the state it had, once nobody but the caller is inside; -1 when that took too long, the gate
// left as it was.
int fsGateClose(FsCaller caller, int *state);
void fsGateOpen(FsCaller caller, int state); // after fsGateClose, with the new state

#endif
