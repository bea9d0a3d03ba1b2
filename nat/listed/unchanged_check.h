// Debug builds: the check that lossless rewriting changed nothing but the fields that a rule set.
// Release builds never call it.
#pragma once

#include "nat/listed/message_edit.h"

// Remembers the octets of a message that lie in the packet, before any of them is written.
void rememberPacket(MessageOctets octets, PacketPlace place);

// Notes that `count` octets of the packet from `octets` on were set.
void rememberSet(const uint8_t* octets, size_t count);

// Aborts when an octet of the remembered message changed and was not noted as set.
void checkPacket();
