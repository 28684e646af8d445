// What the two files of the probe provider share.
#ifndef OXT_PROBE_H
#define OXT_PROBE_H

#include <string>

#include "cmpidt.h"
#include "cmpift.h"
#include "cmpimacs.h"

struct Request {
    const CMPIContext *ctx;
    const CMPIResult *rslt;
    const CMPIObjectPath *op;
    const CMPIArgs *in;
};

extern const CMPIBroker *broker;

std::string code(const CMPIStatus &rc, const CMPIData &data = {});
CMPIInstance *newInstance(const Request &r);

// Deeds that go through the slots of one kind of object, or of the broker.
std::string paths(const Request &r);
std::string instances(const Request &r);
std::string asking(const Request &r);
std::string dates(const Request &r);
std::string services(const Request &r);
std::string system(const Request &r);

#endif
