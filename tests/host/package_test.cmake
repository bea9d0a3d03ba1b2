# Installs the module into WORK, builds SAMPLE against what is there with find_package, and
# runs it.
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
# Windows finds the module in the folder of the program.
file(GLOB modules "${WORK}/root/bin/*.dll")
file(COPY ${modules} DESTINATION "${WORK}/build")
if(RUN)
  run(${EMULATOR} "${WORK}/build/minimal_host${SUFFIX}")
endif()
