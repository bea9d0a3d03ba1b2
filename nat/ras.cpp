#include "nat/ras.h"

uint32_t TranslateRasMessage(HostContext*, uint8_t*, uint32_t, uint32_t) {
    return 0;
}
