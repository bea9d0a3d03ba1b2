// Values as text, in the forms that tree/message_tree.h tells.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "asn1per/asn1per.h"

namespace tree {

std::string hexText(std::span<const uint8_t> octets);
std::string hexText(const std::string& octets);

// Characters of 8 or 16 bits.
std::string escapedText(std::string_view characters);
std::string escapedText(const BMPStringValue& characters);

std::string identifierText(const ObjectIdentifier& identifier);

// A two's complement number when it is signed, otherwise `base` and what the octets count above it.
std::string signedText(std::span<const uint8_t> octets);
std::string offsetText(int64_t base, std::span<const uint8_t> octets);

// Octets between quotes when all of them are printable, and there are some; otherwise nothing.
std::string readableText(std::span<const uint8_t> octets);

} // namespace tree
