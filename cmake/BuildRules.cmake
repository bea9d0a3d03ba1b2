# Language, warnings and output folders, shared by every target of the project.

include(GNUInstallDirs)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 99)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")

# Set by the toolchain files: packages of the build machine do not fit the target.
option(H323NAT_FOREIGN "Build for another system than the build machine's" OFF)

# The same commit gives the same octets in whatever folder it is built: no path of this machine goes
# into what ships, and no time of day into a DLL.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON) # an installed program keeps the length of the path
add_compile_options("$<$<CONFIG:Release>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")
if(WIN32)
  add_link_options("LINKER:--no-insert-timestamp")
endif()

# What ships resists faults that nobody has found: checked returns, fortified copies, tables that are
# read-only once they are linked. scripts/hardening.sh looks whether it is there.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(hardened
    -fstack-protector-strong -fstack-clash-protection -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|i.86")
    list(APPEND hardened -fcf-protection=full)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    list(APPEND hardened -mbranch-protection=standard)
  endif()
  add_compile_options("$<$<CONFIG:Release>:${hardened}>")
  add_link_options("LINKER:-z,relro,-z,now")
  include(CheckPIESupported)
  check_pie_supported()
elseif(WIN32)
  add_link_options("LINKER:--dynamicbase,--nxcompat")
endif()

option(H323NAT_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)

add_library(h323nat_rules INTERFACE)
target_include_directories(h323nat_rules INTERFACE
  "${PROJECT_SOURCE_DIR}"
  "${PROJECT_SOURCE_DIR}/include")
target_compile_options(h323nat_rules INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Werror
  # GCC 12 sees overlapping copies in plain string concatenation when it optimises (its bug 105651).
  $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-restrict>)
if(H323NAT_SANITIZE)
  target_compile_options(h323nat_rules INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(h323nat_rules INTERFACE -fsanitize=address,undefined)
endif()

# h323nat_compile_quickly(TARGET): what is made of large headers and waits for people takes half as
# long to build with the sanitizers when it is not optimised.
function(h323nat_compile_quickly target)
  if(H323NAT_SANITIZE)
    target_compile_options(${target} PRIVATE -O0)
  endif()
endfunction()

# The fuzzer counts the edges that an input reaches in code built like this; only the fuzz targets
# link its main.
option(H323NAT_FUZZ "Build the fuzz targets with libFuzzer (clang)" OFF)
if(H323NAT_FUZZ)
  target_compile_options(h323nat_rules INTERFACE -fsanitize=fuzzer-no-link)
endif()

option(H323NAT_COVERAGE "Count the lines that a run reaches (clang)" OFF)
if(H323NAT_COVERAGE)
  target_compile_options(h323nat_rules INTERFACE -fprofile-instr-generate -fcoverage-mapping)
  target_link_options(h323nat_rules INTERFACE -fprofile-instr-generate)
endif()

# The module's own code: no exceptions, no run-time type information.
add_library(h323nat_module_rules INTERFACE)
target_link_libraries(h323nat_module_rules INTERFACE h323nat_rules)
target_compile_options(h323nat_module_rules INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
