# Windows, by Debian's mingw-w64 compilers with the POSIX thread model (the one whose standard
# library has <mutex>, which GoogleTest needs). The including file sets H323NAT_MINGW_TARGET.
set(CMAKE_SYSTEM_NAME Windows)
set(H323NAT_FOREIGN ON)
set(CMAKE_C_COMPILER ${H323NAT_MINGW_TARGET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${H323NAT_MINGW_TARGET}-g++-posix)
set(CMAKE_RC_COMPILER ${H323NAT_MINGW_TARGET}-windres)
# Files may be longer than 2 GB whatever the width of long, and time goes on after 2038: the last of
# these names makes time_t as wide on 32-bit Windows as it is on the other.
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -D__MINGW_USE_VC2005_COMPAT")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -D__MINGW_USE_VC2005_COMPAT")
set(CMAKE_FIND_ROOT_PATH /usr/${H323NAT_MINGW_TARGET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The compiler's runtime goes into each file: a host program needs no DLL of the compiler's.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
