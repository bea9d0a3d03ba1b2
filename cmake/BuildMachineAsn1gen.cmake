# The generator for builds whose programs do not run here: it comes from a build of its own, for the
# build machine, below this one. H323NAT_ASN1GEN names a ready one instead.
set(H323NAT_ASN1GEN "" CACHE FILEPATH "A generator for the build machine; empty: build it")

add_executable(asn1gen IMPORTED GLOBAL)
set_property(TARGET asn1gen PROPERTY CROSSCOMPILING_EMULATOR "")
if(H323NAT_ASN1GEN)
  set_property(TARGET asn1gen PROPERTY IMPORTED_LOCATION "${H323NAT_ASN1GEN}")
else()
  include(ExternalProject)
  set(native "${PROJECT_BINARY_DIR}/native")
  ExternalProject_Add(native_asn1gen
    SOURCE_DIR "${PROJECT_SOURCE_DIR}"
    BINARY_DIR "${native}"
    CMAKE_ARGS
      -DCMAKE_BUILD_TYPE=Debug
      "-DCMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER}"
      "-DCMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER}"
      -DH323NAT_TESTS=OFF
      -DH323NAT_TOOLS=OFF
    BUILD_COMMAND "${CMAKE_COMMAND}" --build <BINARY_DIR> --target asn1gen
    BUILD_ALWAYS ON
    BUILD_BYPRODUCTS "${native}/bin/asn1gen"
    INSTALL_COMMAND ""
    USES_TERMINAL_BUILD ON)
  set_property(TARGET asn1gen PROPERTY IMPORTED_LOCATION "${native}/bin/asn1gen")
  add_dependencies(asn1gen native_asn1gen)
endif()
