# With this, headers of others that most files include are compiled once, which spares most units of a
# build from nothing a fifth or more. For clang alone: GCC 12 then warns of its own headers. Off by
# default, since ccache, as it is set up by default, takes no part in such builds.
option(TOVREK_COMMON_HEADERS "Precompile common headers, for builds with clang and without ccache" OFF)
set(TOVREK_COMMON_HEADER_LIST
    <algorithm> <array> <chrono> <functional> <map> <memory> <optional> <set> <span> <string>
    <string_view> <utility> <variant> <vector> <fmt/chrono.h> <fmt/format.h>)

# tovrek_common_headers(TARGET MAKER [headers...]): MAKER, which may be the target itself, compiles the
# common headers and these; the target takes them from there.
function(tovrek_common_headers target maker)
  if(NOT TOVREK_COMMON_HEADERS)
    return()
  endif()
  if(target STREQUAL maker)
    target_precompile_headers(${target} PRIVATE ${TOVREK_COMMON_HEADER_LIST} ${ARGN})
  else()
    target_precompile_headers(${target} REUSE_FROM ${maker})
  endif()
endfunction()
