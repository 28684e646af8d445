// What OXT_EXPLORED_PROVIDER takes and sends.
#ifndef OXT_EXPLORED_CALLS_H
#define OXT_EXPLORED_CALLS_H

#include <cstddef>

namespace explored {

void reset(bool librariesOffered); // for a provider that is loaded next: whether it finds the agent's libraries
void hangAt(const char *call);     // the next such call lasts 40 seconds; null for none
std::size_t held();                // blocks that it has not given back
std::size_t segmentsLeft();        // segments that it has not removed
long alerts();                     // that it has sent
void markInside(bool *mark);       // becomes true once the calling thread's request is past its initialisation

} // namespace explored

#endif
