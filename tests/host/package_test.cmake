# Installs the module into WORK, builds SAMPLE against what is there with find_package, and runs it.
file(REMOVE_RECURSE "${WORK}")
function(run)
  execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY COMMAND_ECHO STDOUT)
endfunction()
run("${CMAKE_COMMAND}" --install "${BUILD}" --component module --prefix "${WORK}/root")
run("${CMAKE_COMMAND}" -S "${SAMPLE}" -B "${WORK}/build" -G "${GENERATOR}"
  "-DCMAKE_PREFIX_PATH=${WORK}/root" "-DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS}")
run("${CMAKE_COMMAND}" --build "${WORK}/build")
run("${WORK}/build/minimal_host")
