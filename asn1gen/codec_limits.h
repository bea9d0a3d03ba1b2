#pragma once

#include "asn1gen/model.h"

namespace asn1gen {

/// Throws SourceError for a type that the model knows and that the records and functions of the C++
/// codecs cannot hold. To be called before emission, after layOut().
void checkCodecLimits(const Model& model);

} // namespace asn1gen
