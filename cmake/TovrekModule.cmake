include(ManPage)
include(CommonHeaders)

# tovrek_module(NAME [LINK libs...]): the library of one folder, from all its .cpp files.
# Headers are included by their path from src/ (or from the project root for programs).
function(tovrek_module name)
  cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
  list(FILTER sources EXCLUDE REGEX "/programs/tovrek/carried_companions\\.cpp$")
  if(APPLE)
    list(FILTER sources EXCLUDE REGEX "_linux\\.cpp$")
  else()
    list(FILTER sources EXCLUDE REGEX "_macos\\.cpp$")
  endif()
  if(NOT sources)
    add_library(tovrek_${name} INTERFACE)
    set(scope INTERFACE)
  else()
    add_library(tovrek_${name} STATIC ${sources})
    set(scope PUBLIC)
  endif()
  target_include_directories(tovrek_${name} ${scope} "${CMAKE_SOURCE_DIR}/src" "${CMAKE_SOURCE_DIR}")
  target_link_libraries(tovrek_${name} ${scope} ${ARG_LINK})
  if(sources)
    tovrek_common_headers(tovrek_${name} tovrek_host)
  endif()
endfunction()

# tovrek_start_fast(TARGET): links the C++ library into a program. A Wrap starts dozens of programs,
# and loading the shared one is half of a start.
function(tovrek_start_fast target)
  if(NOT APPLE AND NOT TOVREK_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_link_options(${target} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
endfunction()

# tovrek_companion(NAME [LOADS_CXX] [LINK libs...]): one program of the host root, from main.cpp of
# the current folder (its other files make the library tovrek_NAME first, where there are any), with
# the manual page NAME.1 when the folder has one. LOADS_CXX is for libraries that load the shared
# C++ library in any case.
function(tovrek_companion name)
  cmake_parse_arguments(ARG "LOADS_CXX" "" "LINK" ${ARGN})
  tovrek_module(${name} LINK ${ARG_LINK})
  # By its mark Tovrek knows a program that it carries itself (see src/host/own_programs.h).
  set(TOVREK_PROGRAM ${name})
  configure_file("${CMAKE_SOURCE_DIR}/cmake/program_mark.cpp.in" program_mark.cpp @ONLY)
  add_executable(${name} main.cpp "${CMAKE_CURRENT_BINARY_DIR}/program_mark.cpp")
  target_link_libraries(${name} PRIVATE tovrek_${name})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${TOVREK_HOST_FOLDER}/usr/bin")
  if(NOT ARG_LOADS_CXX)
    tovrek_start_fast(${name})
  endif()
  add_dependencies(tovrek_host_root ${name})
  if(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/${name}.1")
    tovrek_man_page("${name}.1")
  endif()
endfunction()

# tovrek_tests(NAME [LINK libs...]): the test program NAME_tests from all .cpp files of the folder.
function(tovrek_tests name)
  cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  if(NOT sources)
    return()
  endif()
  add_executable(${name}_tests ${sources})
  target_include_directories(${name}_tests PRIVATE "${CMAKE_SOURCE_DIR}")
  target_link_libraries(${name}_tests PRIVATE ${ARG_LINK} tovrek_test_support GTest::gtest_main GTest::gmock)
  tovrek_common_headers(${name}_tests tovrek_test_headers)
  add_dependencies(${name}_tests tovrek_host_root)
  gtest_discover_tests(${name}_tests DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT 300)
endfunction()
