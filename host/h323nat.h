#include <h323nat.h> /* the contract lies in include/; this name stays for hosts that know it */
