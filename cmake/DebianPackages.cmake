# The Debian packages: library, what host programs are built with, and the tool with its gateway.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development)
set(library libh323nat${PROJECT_VERSION_MAJOR})
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "H.323 address translation for NAT gateways (module)
A module that a program doing IPv4 NAT loads to translate the addresses in
H.323 signalling: H.225.0 call signalling, fast start, H.245 and RAS.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "H.323 address translation for NAT gateways (development)
The header and the CMake package that programs are built with that load the
module ${library}.")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "H.323 address translation for NAT gateways (tools)
The command-line tool h323nat, which decodes messages, replays captures
through the module ${library}, and runs the gateway that carries the calls
of private hosts through a Linux router.")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")

set(control "${PROJECT_SOURCE_DIR}/packaging/debian")
set(same "${library} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${control}/triggers")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libh323nat-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${same}")
set(documented ${library}:runtime libh323nat-dev:development)
if(H323NAT_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
  list(APPEND documented h323nat:tools)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME h323nat)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${same}")
  if(TARGET h323gateway_live)
    set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "nftables")
    set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA
      "${control}/conffiles" "${control}/postinst" "${control}/prerm" "${control}/postrm")
  endif()
endif()

# What every package has to say of itself.
find_program(H323NAT_GZIP gzip REQUIRED)
set(changelog "${PROJECT_BINARY_DIR}/changelog")
set(ENV{SOURCE_DATE_EPOCH} ${epoch}) # the time that string() tells
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
unset(ENV{SOURCE_DATE_EPOCH})
configure_file("${control}/changelog" "${changelog}" @ONLY)
execute_process(COMMAND "${H323NAT_GZIP}" --best --no-name --keep --force "${changelog}"
  COMMAND_ERROR_IS_FATAL ANY)
foreach(package IN LISTS documented)
  string(REPLACE ":" ";" package "${package}")
  list(GET package 0 name)
  list(GET package 1 component)
  install(FILES "${changelog}.gz" "${control}/copyright" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${name}" COMPONENT "${component}")
endforeach()

# CPack leaves the time of day in the archive's headers, so dpkg-deb packs what it made once more.
set(CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/RepackDebianPackages.cmake")
