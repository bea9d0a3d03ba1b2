# h323nat_header_only(PACKAGE TARGET FOLDER)
#
# For targets other than the build machine: makes TARGET from the headers in FOLDER below the build
# machine's include folder. That include folder itself must stay out of sight, it holds the build
# machine's C library; so each package's folder is linked into one of the build's own.
function(h323nat_header_only package target folder)
  find_path(${package}_HEADERS "${folder}" PATHS /usr/include
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  mark_as_advanced(${package}_HEADERS)
  set(${package}_HEADERS "${${package}_HEADERS}" PARENT_SCOPE)
  if(${package}_HEADERS AND NOT TARGET ${target})
    set(headers "${PROJECT_BINARY_DIR}/headers")
    file(MAKE_DIRECTORY "${headers}")
    file(CREATE_LINK "${${package}_HEADERS}/${folder}" "${headers}/${folder}" SYMBOLIC)
    add_library(${target} INTERFACE IMPORTED GLOBAL)
    set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${headers}")
  endif()
endfunction()
