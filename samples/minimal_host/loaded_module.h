/* For a host program that loads the module itself instead of being linked with it. */
#pragma once

/* Loads the module from FILE; all functions of h323nat.h may be called then. Result: 1, or 0 when
 * the file is no such module, which is said on standard error. The module stays loaded. */
int loadModule(const char* file);
