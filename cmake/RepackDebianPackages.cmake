# Run by CPack: packs each package once more with the times of SOURCE_DATE_EPOCH alone.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(folder "${package}.content")
  file(REMOVE_RECURSE "${folder}")
  execute_process(COMMAND dpkg-deb --raw-extract "${package}" "${folder}"
    COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND dpkg-deb --build --root-owner-group -Zxz "${folder}" "${package}"
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE "${folder}")
endforeach()
