// The monitoring core as the benchmarks drive it: the rooms themselves, without a host around them.
#ifndef OXT_BENCH_PROVIDER_H
#define OXT_BENCH_PROVIDER_H

#include "oxtService.h"

namespace bench {

// A request's surroundings, outside service mode; nothing asks the broker then.
OxtCInfo outsideServiceMode();

// A store over the present file systems, built without a save file. False when it could not be.
bool buildStore(const OxtCInfo *cInfo);
void dropStore(const OxtCInfo *cInfo);

} // namespace bench

#endif
