# 32-bit Windows. Programs of the build run under Wine where it has a 32-bit loader.
set(H323NAT_MINGW_TARGET i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR i686)
include("${CMAKE_CURRENT_LIST_DIR}/mingw.cmake")
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../../scripts/wine.sh")
