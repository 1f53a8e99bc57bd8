# tovrek_re2: RE2 as a static library where there is one. The shared one loads the shared C++
# library, half of what a start of `codesign` takes.
pkg_check_modules(RE2 REQUIRED re2)
find_library(TOVREK_RE2 NAMES libre2.a re2 HINTS ${RE2_LIBRARY_DIRS} REQUIRED)
add_library(tovrek_re2 INTERFACE)
target_include_directories(tovrek_re2 SYSTEM INTERFACE ${RE2_INCLUDE_DIRS})
target_link_libraries(tovrek_re2 INTERFACE "${TOVREK_RE2}" Threads::Threads)
