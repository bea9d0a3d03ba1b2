#pragma once

// The files that the build puts into the program.
namespace report {

extern const char pageStyle[];
extern const char pageScript[];

} // namespace report
