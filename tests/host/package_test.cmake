# Installs the module into WORK, builds SAMPLE against what is there with find_package, and runs it:
# linked with the module, and loading it. Both see the same, an address rewritten in each scope.
file(REMOVE_RECURSE "${WORK}")
function(run)
  execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY COMMAND_ECHO STDOUT)
endfunction()
foreach(component IN ITEMS runtime development)
  run("${CMAKE_COMMAND}" --install "${BUILD}" --component ${component} --prefix "${WORK}/root")
endforeach()
file(GLOB package "${WORK}/root/lib*/cmake/h323nat" "${WORK}/root/lib/*/cmake/h323nat")
run("${CMAKE_COMMAND}" -S "${SAMPLE}" -B "${WORK}/build" -G "${GENERATOR}"
  "-Dh323nat_DIR=${package}" "-DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN}"
  "-DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS}")
run("${CMAKE_COMMAND}" --build "${WORK}/build")
if(NOT RUN)
  return()
endif()
# Windows finds the module in the folder of the program.
file(GLOB module "${WORK}/root/bin/*.dll")
file(COPY ${module} DESTINATION "${WORK}/build")
if(NOT module)
  file(GLOB module "${WORK}/root/lib*/*.so" "${WORK}/root/lib/*/*.so")
endif()
set(rewritten " *read gatekeeperRequest\n *rewritten [^\n]*rasAddress[^\n]* to c6336407:1719\n *sent: payload changed\n")
set(received " *received: payload unchanged\n")
foreach(host IN ITEMS "minimal_host${SUFFIX}" "loading_host${SUFFIX};${module}")
  list(POP_FRONT host program)
  execute_process(COMMAND ${EMULATOR} "${WORK}/build/${program}" ${host}
    OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "\r" "" output "${output}")
  if(NOT output MATCHES
      "^module identification: 0x01020304\nlisted scope, rewrite mode 1\n${received}${rewritten}full scope\n${received}${rewritten}$")
    message(FATAL_ERROR "${program} ${host} says\n${output}")
  endif()
endforeach()
