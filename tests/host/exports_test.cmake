# The module exports the names of its list and no other, each with its symbol version.
file(STRINGS "${LIST}" lines REGEX "^[A-Za-z]")
list(FILTER lines EXCLUDE REGEX " windows$")
list(SORT lines)
execute_process(COMMAND "${NM}" -D --defined-only "${MODULE}"
  OUTPUT_VARIABLE table COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^ \n]+\n" names "${table}")
list(TRANSFORM names STRIP)
list(FILTER names EXCLUDE REGEX "^H323NAT_[0-9]+$")
list(TRANSFORM lines APPEND "@@H323NAT_${MAJOR}")
list(SORT names)
if(NOT names STREQUAL lines)
  message(FATAL_ERROR "exported: ${names}\nexpected: ${lines}")
endif()
