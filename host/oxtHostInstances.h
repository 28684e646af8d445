// Fresh instances, and instances and paths as the client sees them.
#ifndef OXT_HOST_INSTANCES_H
#define OXT_HOST_INSTANCES_H

#include <memory>

#include "oxtHostBroker.h"

namespace oxthost {

std::shared_ptr<InstanceBody> newInstanceBody(Broker &broker, const PathBody &path);
Instance toInstance(const Broker &broker, const InstanceBody &body); // key names that only the filter listed are hidden
Instance toInstance(const PathBody &body);                           // keys only

} // namespace oxthost

#endif
