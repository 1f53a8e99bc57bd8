# tovrek_man_page(FILE [ALIAS NAME]): one manual page, such as programs/codesign/codesign.1, put into
# usr/share/man/manSECTION of the host root, where `man` finds it once usr/bin is in PATH. With an
# alias, NAME.SECTION leads to it too.
# tovrek_companion calls this for NAME.1 beside main.cpp; a companion without a folder of its own
# may call it itself.
function(tovrek_man_page file)
  cmake_parse_arguments(ARG "" "ALIAS" "" ${ARGN})
  cmake_path(ABSOLUTE_PATH file BASE_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}" NORMALIZE)
  cmake_path(GET file FILENAME name)
  if(NOT name MATCHES "^[^.].*\\.([1-9])$")
    message(FATAL_ERROR "${file} is no manual page: its name must end in .1 to .9")
  endif()
  set(section "${CMAKE_MATCH_1}")
  set(folder "${TOVREK_HOST_FOLDER}/usr/share/man/man${section}")
  # Copied while configuring, and again after every change of the page.
  configure_file("${file}" "${folder}/${name}" COPYONLY)
  if(ARG_ALIAS)
    file(CONFIGURE OUTPUT "${folder}/${ARG_ALIAS}.${section}" CONTENT ".so man${section}/${name}\n")
  endif()
endfunction()
