# Writes the examples of a page into DIRECTORY: each fenced block whose first line is a comment that
# names its file.
file(READ "${PAGE}" page)
foreach(file "-- WEATHER.asn" "// main.cpp")
  string(FIND "${page}" "${file}\n" start)
  if(start EQUAL -1)
    message(FATAL_ERROR "${PAGE} has no example that begins with \"${file}\"")
  endif()
  string(SUBSTRING "${page}" ${start} -1 block)
  string(FIND "${block}" "```" end)
  string(SUBSTRING "${block}" 0 ${end} block)
  string(REGEX REPLACE "^.* " "" name "${file}")
  file(WRITE "${DIRECTORY}/${name}" "${block}")
endforeach()
