// For variables that no other module reads. In a shared library each access is then one instruction
// without a look into the table of addresses.
#pragma once

#if defined(__ELF__)
#define H323NAT_HIDDEN [[gnu::visibility("hidden")]]
#else
#define H323NAT_HIDDEN
#endif
