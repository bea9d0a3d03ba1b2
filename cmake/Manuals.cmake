# h323nat_manual(FILE COMPONENT)
#
# Installs the manual page FILE of docs/ under its section, compressed, with the project's version
# where the page says @PROJECT_VERSION@. Windows has no reader of manual pages and gets plain text.
function(h323nat_manual file component)
  set(page "${PROJECT_BINARY_DIR}/manuals/${file}")
  configure_file("${PROJECT_SOURCE_DIR}/docs/${file}" "${page}" @ONLY)
  if(WIN32)
    find_program(H323NAT_GROFF groff REQUIRED)
    string(REGEX REPLACE "\\.[0-9]$" ".txt" text "${page}")
    execute_process(COMMAND "${H323NAT_GROFF}" -man -Kutf8 -Tutf8 -P-bcou "${page}"
      OUTPUT_FILE "${text}" COMMAND_ERROR_IS_FATAL ANY)
    install(FILES "${text}" DESTINATION doc COMPONENT "${component}")
    return()
  endif()
  find_program(H323NAT_GZIP gzip REQUIRED)
  # Without name and time, so that the same page gives the same octets.
  execute_process(COMMAND "${H323NAT_GZIP}" --best --no-name --keep --force "${page}"
    COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX REPLACE ".*\\." "" section "${file}")
  install(FILES "${page}.gz"
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}"
    COMPONENT "${component}")
endfunction()
