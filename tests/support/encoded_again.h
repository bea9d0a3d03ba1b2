// What encoding a message again gives, computed apart from the translators.
#pragma once

#include "tests/support/octets.h"

namespace test_support {

enum class MessageKind { userInformation, ras, control };

/// The octets of `original` after the message in it, from octet `start` on, was translated and
/// encoded over them. `rewritten` is the same payload with its new addresses and nothing else
/// changed: its decoded record is what the translator has after setting them. With `fastStart`,
/// elements of a Setup's fast start that differ are encoded over their own octets first.
Octets encodedAgain(const Octets& original, const Octets& rewritten, size_t start, MessageKind kind,
                    bool fastStart);

} // namespace test_support
