# `h323nat.exe replay` on each recorded call: its report is the expected one, and its output a
# capture of the same length, since addresses keep theirs.
file(GLOB expectations "${SAMPLES}/*.expected.jsonl")
if(NOT expectations)
  message(FATAL_ERROR "no expected report in ${SAMPLES}")
endif()
foreach(expectation IN LISTS expectations)
  string(REPLACE ".expected.jsonl" "" call "${expectation}")
  get_filename_component(name "${call}" NAME)
  set(publish "")
  if(name MATCHES "^in-")
    set(publish --publish 10.0.0.5)
  endif()
  set(output "${WORK}/${name}.pcap")
  execute_process(
    COMMAND ${PROGRAM} replay --inside 10.0.0.0/24 --public 203.0.113.1 ${publish}
      "${call}.pcap" -o "${output}" --json
    OUTPUT_VARIABLE report
    COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "\r\n" "\n" report "${report}")
  file(READ "${expectation}" expected)
  if(NOT report STREQUAL expected)
    message(FATAL_ERROR "${name}: the report is\n${report}\nexpected\n${expected}")
  endif()
  file(SIZE "${call}.pcap" before)
  file(SIZE "${output}" after)
  if(NOT before EQUAL after)
    message(FATAL_ERROR "${name}: ${before} octets of capture became ${after}")
  endif()
endforeach()
