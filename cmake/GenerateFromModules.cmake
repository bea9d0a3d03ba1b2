# h323nat_generate(FOLDER OUTPUT file... OPTIONS option... COMMENT text [DEPENDS file...])
#
# Makes the files OUTPUT in the current build folder from H.323's modules in FOLDER, by asn1gen with
# these options.
function(h323nat_generate folder)
  cmake_parse_arguments(arg "" "COMMENT" "OUTPUT;OPTIONS;DEPENDS" ${ARGN})
  set(modules H235-SECURITY-MESSAGES MULTIMEDIA-SYSTEM-CONTROL H323-MESSAGES)
  list(TRANSFORM modules REPLACE "(.+)" "${folder}/\\1.asn" OUTPUT_VARIABLE inputs)
  add_custom_command(
    OUTPUT ${arg_OUTPUT}
    COMMAND asn1gen ${inputs}
      --prefix H235-SECURITY-MESSAGES=H235
      --prefix MULTIMEDIA-SYSTEM-CONTROL=H245
      --prefix H323-MESSAGES=H225
      ${arg_OPTIONS}
      -o "${CMAKE_CURRENT_BINARY_DIR}"
    DEPENDS asn1gen ${inputs} ${arg_DEPENDS}
    COMMENT "${arg_COMMENT}"
    VERBATIM)
endfunction()
