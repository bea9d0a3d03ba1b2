# h323nat_limit_exports(TARGET LIST)
#
# Makes the names in the file LIST the only ones that the shared library TARGET exports. A line is a
# name, or a name and `windows` when it exists only there; `#` begins a comment. The same list
# becomes a version script or a .def file.
function(h323nat_limit_exports target list)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${list}")
  file(STRINGS "${list}" lines REGEX "^[A-Za-z]")
  set(names "")
  foreach(line IN LISTS lines)
    string(REGEX MATCHALL "[A-Za-z0-9_]+" words "${line}")
    list(GET words 0 name)
    if(WIN32 OR NOT "windows" IN_LIST words)
      list(APPEND names "${name}")
    endif()
  endforeach()

  if(WIN32)
    set(file "${CMAKE_CURRENT_BINARY_DIR}/${target}.def")
    list(JOIN names "\n  " text)
    set(text "EXPORTS\n  ${text}\n")
    target_sources(${target} PRIVATE "${file}")
    # 32-bit Windows calls DllMain by another convention, with a decorated name. This exports it
    # under the plain one and says nothing about it.
    target_link_options(${target} PRIVATE "LINKER:--enable-stdcall-fixup")
  else()
    set(file "${CMAKE_CURRENT_BINARY_DIR}/${target}.map")
    list(JOIN names ";\n    " text)
    # The version of the binary interface, the first number of the module's name as well.
    set(node "H323NAT_${PROJECT_VERSION_MAJOR}")
    set(text "${node} {\n  global:\n    ${text};\n  local:\n    *;\n};\n")
    target_link_options(${target} PRIVATE "LINKER:--version-script=${file}")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${file}")
  endif()
  file(CONFIGURE OUTPUT "${file}" CONTENT "${text}" @ONLY)
endfunction()
