# The converter package of the database character sets: for each set of
# charsets/DatabaseCharSets.txt with a counterpart, ucmgen (a tool of this
# build) writes a mapping file read from ICU's counterpart converter, ICU's
# makeconv compiles it, and pkgdata packages the lot as qzCharsets.dat, which
# is installed beside the library, where the library's search finds it.
find_program(QZ_MAKECONV makeconv)
qz_require(QZ_MAKECONV icu-devtools)

set(QZ_CHARSETS_TABLE ${PROJECT_SOURCE_DIR}/charsets/DatabaseCharSets.txt)
set(QZ_CHARSETS_DAT ${PROJECT_BINARY_DIR}/qzCharsets.dat)
set(_qz_cs ${PROJECT_BINARY_DIR}/charsets)

# The names with a counterpart, read here so that the build knows its outputs.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${QZ_CHARSETS_TABLE})
file(STRINGS ${QZ_CHARSETS_TABLE} _qz_cs_rows REGEX "^[a-z0-9]+[ \t]+[^- \t]")
set(_qz_cs_ucm "")
set(_qz_cs_cnv "")
set(_qz_cs_list "")
foreach(row IN LISTS _qz_cs_rows)
  string(REGEX MATCH "^[a-z0-9]+" name "${row}")
  list(APPEND _qz_cs_ucm ${_qz_cs}/ucm/${name}.ucm)
  list(APPEND _qz_cs_cnv ${_qz_cs}/cnv/${name}.cnv)
  string(APPEND _qz_cs_list "${name}.cnv\n")
endforeach()
file(MAKE_DIRECTORY ${_qz_cs}/ucm ${_qz_cs}/cnv ${_qz_cs}/tmp ${_qz_cs}/out)
file(WRITE ${_qz_cs}/list.txt.in "${_qz_cs_list}")
configure_file(${_qz_cs}/list.txt.in ${_qz_cs}/list.txt COPYONLY)

add_executable(qzucmgen ${PROJECT_SOURCE_DIR}/tools/ucmgen/ucmgen.cpp)
target_compile_options(qzucmgen PRIVATE -Wall -Wextra -fno-sanitize=all)
target_link_libraries(qzucmgen PRIVATE ICU::uc)
# A build tool: no sanitizer runtime at build time.
target_link_options(qzucmgen PRIVATE -fno-sanitize=all)

add_custom_command(OUTPUT ${_qz_cs_ucm}
  COMMAND qzucmgen ${QZ_CHARSETS_TABLE} ${_qz_cs}/ucm
  DEPENDS qzucmgen ${QZ_CHARSETS_TABLE}
  COMMENT "Writing the mapping files of the database character sets"
  VERBATIM)
add_custom_command(OUTPUT ${QZ_CHARSETS_DAT}
  COMMAND ${QZ_MAKECONV} -q -d ${_qz_cs}/cnv ${_qz_cs_ucm}
  COMMAND ${QZ_PKGDATA} -q -m common -p qzCharsets -d ${_qz_cs}/out -T ${_qz_cs}/tmp
          -s ${_qz_cs}/cnv ${_qz_cs}/list.txt
  COMMAND ${CMAKE_COMMAND} -E copy ${_qz_cs}/out/qzCharsets.dat ${QZ_CHARSETS_DAT}
  DEPENDS ${_qz_cs_ucm} ${_qz_cs}/list.txt
  COMMENT "Packaging the converters of the database character sets"
  VERBATIM)
# The library checks the package it finds against this size and checksum.
set(QZ_CHARSETS_DIGEST ${QZ_GENERATED_DIR}/qzunicode/CharSetPackageDigest.h)
add_custom_command(OUTPUT ${QZ_CHARSETS_DIGEST}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${QZ_GENERATED_DIR}/qzunicode
  COMMAND qzucmgen --digest ${QZ_CHARSETS_DAT} ${QZ_CHARSETS_DIGEST}
  DEPENDS qzucmgen ${QZ_CHARSETS_DAT}
  COMMENT "Recording the checksum of the converter package"
  VERBATIM)
add_custom_target(qz_charsets ALL DEPENDS ${QZ_CHARSETS_DAT} ${QZ_CHARSETS_DIGEST})
target_sources(qzlib_objects PRIVATE ${QZ_CHARSETS_DIGEST})
install(FILES ${QZ_CHARSETS_DAT} DESTINATION ${CMAKE_INSTALL_LIBDIR})

# qz_place_charsets(target): puts qzCharsets.dat beside a program of the build
# tree, where the library's search finds it when the program links the
# library statically. A link, not a copy: the package is large and the same
# for every program. Programs of one folder place it at the same time in a
# parallel build, so each makes a link of its own name and renames it over
# the shared one (a rename replaces atomically; creating the shared link in
# place fails when another program's link appears first).
function(qz_place_charsets target)
  set(dir $<TARGET_FILE_DIR:${target}>)
  add_custom_target(${target}_place_charsets
    COMMAND ${CMAKE_COMMAND} -E rm -f ${dir}/qzCharsets.dat.${target}
    COMMAND ${CMAKE_COMMAND} -E create_symlink ${QZ_CHARSETS_DAT} ${dir}/qzCharsets.dat.${target}
    COMMAND ${CMAKE_COMMAND} -E rename ${dir}/qzCharsets.dat.${target} ${dir}/qzCharsets.dat
    DEPENDS ${QZ_CHARSETS_DAT}
    VERBATIM)
  add_dependencies(${target}_place_charsets qz_charsets)
  add_dependencies(${target} ${target}_place_charsets)
endfunction()
