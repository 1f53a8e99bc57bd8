# tovrek_fmt: fmt as a static library. Debian has the shared one alone, and that one loads the
# shared C++ library, which takes a companion longer than all else until its main().
#
# fmt's own file with the compiled part belongs to no package; what is in it depends on the version.
# With any other version than that of Debian 12 the shared library is linked.
if(fmt_VERSION VERSION_GREATER_EQUAL 9 AND fmt_VERSION VERSION_LESS 10)
  add_library(tovrek_fmt STATIC "${CMAKE_SOURCE_DIR}/cmake/fmt_instances.cpp")
else()
  add_library(tovrek_fmt INTERFACE)
  target_link_libraries(tovrek_fmt INTERFACE fmt::fmt)
endif()
