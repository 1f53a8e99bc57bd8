# tovrek_python_tests(PREFIX NAMES names... TIMEOUT seconds ENVIRONMENT variables...): the test
# PREFIX.NAME from each test_NAME.py of the current folder. They take longer than most others, so they
# start first, lest one of them keeps all waiting at the end.
function(tovrek_python_tests prefix)
  cmake_parse_arguments(ARG "" "TIMEOUT" "NAMES;ENVIRONMENT" ${ARGN})
  find_program(TOVREK_PYTHON NAMES python3 REQUIRED)
  foreach(name ${ARG_NAMES})
    add_test(NAME ${prefix}.${name}
             COMMAND "${TOVREK_PYTHON}" -B -m unittest test_${name}
             WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")
    set_tests_properties(${prefix}.${name} PROPERTIES
      TIMEOUT ${ARG_TIMEOUT} COST 10 ENVIRONMENT "${ARG_ENVIRONMENT}")
  endforeach()
endfunction()
