// How a changed message goes back into its packet. The rules, their conditions and the host calls
// are the same in both modes; only the write-back differs.
#pragma once

#include <cstdint>

enum RewriteMode : uint32_t {
    // The whole decoded message is encoded again over its old octets. What the codecs do not carry
    // (extension additions of newer versions) is lost.
    REWRITE_ENCODED = 0,
    // Only the octets of the addresses and ports that a rule set are written; no other bit changes.
    // Messages of newer versions decode as far as the rules need them.
    REWRITE_LOSSLESS = 1,
};

// The mode in force: REWRITE_ENCODED until setRewriteMode changes it. Holds for the whole process.
extern RewriteMode rewriteMode;

// Chooses a mode; a value that is no mode changes nothing. Gives the mode now in force. Call it
// between packets, never from inside a host callback.
uint32_t setRewriteMode(uint32_t mode);
