// The MOF text of the provider's classes, built in: it gives untyped arguments their types.
#ifndef OXT_MONITOR_SCHEMA_H
#define OXT_MONITOR_SCHEMA_H

namespace oxttool {

extern const char *const kSchema;

} // namespace oxttool

#endif
