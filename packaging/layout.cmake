# Lays the installable folder out for a system: programs and the host root in usr/lib/tovrek, of which
# only the toolkit's own programs are in everybody's path; settings in etc/tovrek; content, pages,
# completion and documents where their readers look.
set(folder "@TOVREK_FOLDER@")
set(sources "@CMAKE_SOURCE_DIR@")
set(root "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
set(library "${root}/usr/lib/tovrek")
set(share "${root}/usr/share")

# run(COMMAND...): ends the layout when the command fails.
function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()
# copy(FOLDER FILE...): for everybody to read.
function(copy to)
  file(COPY ${ARGN} DESTINATION "${to}" FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()
# link(TARGET PATH): a link that says TARGET.
function(link target path)
  cmake_path(GET path PARENT_PATH parent)
  file(MAKE_DIRECTORY "${parent}")
  file(CREATE_LINK "${target}" "${path}" SYMBOLIC)
endfunction()

file(COPY "${folder}/Tovrek" "${folder}/Inspect" DESTINATION "${library}")
file(COPY "${folder}/host" DESTINATION "${library}"
     REGEX "/man[0-9]/([Tt]ovrek|Inspect|Batch)" EXCLUDE PATTERN man5 EXCLUDE PATTERN man7 EXCLUDE)
link(../lib/tovrek/Tovrek "${root}/usr/bin/Tovrek")
link(../lib/tovrek/Inspect "${root}/usr/bin/tovrek-inspect")
if(EXISTS "${folder}/Batch")
  file(COPY "${folder}/Batch" DESTINATION "${library}")
  link(../lib/tovrek/Batch "${root}/usr/bin/tovrek-batch")
endif()

file(GLOB programs "${library}/Tovrek" "${library}/Inspect" "${library}/Batch"
     "${library}/host/usr/bin/*")
run(strip --strip-unneeded --remove-section=.comment --remove-section=.note ${programs})

# The link that makes the program look for what is the administrator's.
copy("${root}/etc/tovrek" "${folder}/tovrek.conf")
link(/etc/tovrek "${library}/local")
link(/etc/tovrek/tovrek.conf "${library}/tovrek.conf")
if(EXISTS "${folder}/Data")
  file(COPY "${folder}/Data" DESTINATION "${share}/tovrek"
       FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endif()
link(../../share/tovrek/Data "${library}/Data")

file(GLOB pages "${folder}/host/usr/share/man/man*/[Tt]ovrek*")
foreach(page ${pages})
  cmake_path(GET page FILENAME name)
  cmake_path(GET page EXTENSION LAST_ONLY section)
  string(REPLACE "." "man" to "${section}")
  copy("${share}/man/${to}" "${page}")
  run(gzip -9n "${share}/man/${to}/${name}")
endforeach()

set(bash "${share}/bash-completion/completions")
copy("${bash}" "${folder}/completion/tovrek.bash")
file(RENAME "${bash}/tovrek.bash" "${bash}/Tovrek")
link(Tovrek "${bash}/tovrek-inspect")
link(Tovrek "${bash}/tovrek-batch")
copy("${share}/zsh/vendor-completions" "${folder}/completion/_tovrek")

set(documents "${share}/doc/tovrek")
file(GLOB pages "${sources}/docs/*.md")
copy("${documents}/docs" ${pages})
copy("${documents}" "${sources}/README.md" "${sources}/CHANGELOG.md" "${sources}/packaging/copyright")
# Debian wants to read the version and its date in a form of its own; what changed is in the other.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE "${documents}/changelog" "tovrek (@PROJECT_VERSION@) unstable; urgency=medium

  * What changed in this version and before is told in CHANGELOG.md.

 -- @TOVREK_MAINTAINER@  ${date}
")
run(gzip -9n "${documents}/changelog")
