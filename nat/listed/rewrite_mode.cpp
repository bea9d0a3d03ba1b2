#include "nat/listed/rewrite_mode.h"

RewriteMode rewriteMode = REWRITE_ENCODED;

uint32_t setRewriteMode(uint32_t mode) {
    if (mode == REWRITE_ENCODED || mode == REWRITE_LOSSLESS) {
        rewriteMode = static_cast<RewriteMode>(mode);
    }
    return rewriteMode;
}
