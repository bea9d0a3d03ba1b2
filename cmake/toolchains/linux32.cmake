# 32-bit x86 Linux on a 64-bit Debian with g++-multilib. The result runs on the build machine, so
# this is not a cross build in CMake's sense and CMAKE_SYSTEM_NAME stays unset.
set(H323NAT_FOREIGN ON)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
# Files may be longer than 2 GB, and time goes on after 2038. SSE2: every processor that can run
# this has it, and doubles then keep to their 64 bits.
set(CMAKE_C_FLAGS_INIT "-m32 -msse2 -mfpmath=sse -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-m32 -msse2 -mfpmath=sse -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
# The build machine's own 64-bit libraries do not fit.
set(CMAKE_IGNORE_PATH /usr/lib/x86_64-linux-gnu /usr/lib/x86_64-linux-gnu/cmake)
