#pragma once

#include "include/h323nat.h"

namespace gateway {

// The lists that the module builds between the host's records: media records stand under the
// record of their H.245 connection.

// True when the module has linked the record under an H.245 connection's record.
bool isLinked(const HostMappingRecord& media);

// Takes a media record out of its parent's list.
void unlink(HostMappingRecord& media);

// Takes every media record out of a parent's list.
void unlinkChildren(HostMappingRecord& parent);

} // namespace gateway
