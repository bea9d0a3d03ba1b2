# 64-bit Windows. Programs of the build run under Wine through scripts/wine.sh.
set(H323NAT_MINGW_TARGET x86_64-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
include("${CMAKE_CURRENT_LIST_DIR}/mingw.cmake")
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../../scripts/wine.sh")
