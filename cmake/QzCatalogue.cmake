# The message catalogue: catalogue/qzMessage.txt compiled by ICU's genrb,
# packaged by pkgdata as qzMessage.dat (beside the library, where the
# library's own search finds it), and read by qzmsggen to generate the
# _MSG_ and _TSTR_ functions that follow it.
find_program(QZ_PKGDATA pkgdata)
qz_require(QZ_PKGDATA icu-devtools)

set(QZ_CATALOGUE_SOURCE ${PROJECT_SOURCE_DIR}/catalogue/qzMessage.txt)
set(QZ_CATALOGUE_DAT ${PROJECT_BINARY_DIR}/qzMessage.dat)
set(QZ_GENERATED_DIR ${PROJECT_BINARY_DIR}/generated)
set(_qz_cat ${PROJECT_BINARY_DIR}/catalogue)

# qz_compile_catalogue(OUTPUT file SOURCE file [FRAGMENTS file...]): a bundle
# source, with the entries of FRAGMENTS added (a host's own messages beside
# the library's), compiled to a package named qzMessage (the name the library
# opens) and written to OUTPUT. A host names OUTPUT "<application>.dat" and
# puts it beside its program or library: the library looks for that first.
function(qz_compile_catalogue)
  cmake_parse_arguments(C "" "OUTPUT;SOURCE" "FRAGMENTS" ${ARGN})
  get_filename_component(stem ${C_OUTPUT} NAME_WE)
  string(MD5 key ${C_OUTPUT})
  set(work ${PROJECT_BINARY_DIR}/catalogue/${stem}-${key})
  set(source ${C_SOURCE})
  if(C_FRAGMENTS)
    set(source ${work}/root.txt)
    add_custom_command(OUTPUT ${source}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${work}
      COMMAND ${CMAKE_COMMAND} -DMAIN=${C_SOURCE} "-DFRAGMENTS=${C_FRAGMENTS}" -DOUT=${source}
              -P ${PROJECT_SOURCE_DIR}/cmake/QzMergeCatalogue.cmake
      DEPENDS ${C_SOURCE} ${C_FRAGMENTS} ${PROJECT_SOURCE_DIR}/cmake/QzMergeCatalogue.cmake
      VERBATIM)
  endif()
  add_custom_command(OUTPUT ${C_OUTPUT}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${work}/res ${work}/tmp ${work}/out
    COMMAND ${QZ_GENRB} -q -d ${work}/res ${source}
    COMMAND ${CMAKE_COMMAND} -E echo root.res > ${work}/list.txt
    COMMAND ${QZ_PKGDATA} -q -m common -p qzMessage -d ${work}/out -T ${work}/tmp -s ${work}/res ${work}/list.txt
    COMMAND ${CMAKE_COMMAND} -E copy ${work}/out/qzMessage.dat ${C_OUTPUT}
    DEPENDS ${source}
    COMMENT "Compiling the message catalogue ${C_OUTPUT}"
    VERBATIM)
endfunction()

qz_compile_catalogue(OUTPUT ${QZ_CATALOGUE_DAT} SOURCE ${QZ_CATALOGUE_SOURCE})
add_custom_target(qz_catalogue ALL DEPENDS ${QZ_CATALOGUE_DAT})

add_executable(qzmsggen ${PROJECT_SOURCE_DIR}/tools/msggen/qzmsggen.cpp)
target_link_libraries(qzmsggen PRIVATE ICU::uc)
# A build tool: no sanitizer runtime at build time.
target_compile_options(qzmsggen PRIVATE -fno-sanitize=all)
target_link_options(qzmsggen PRIVATE -fno-sanitize=all)

set(QZ_GENERATED_SOURCES
  ${QZ_GENERATED_DIR}/qzmsg/MessageFunctions.cpp
  ${QZ_GENERATED_DIR}/qzmsg/MessageFunctions.h
  ${QZ_GENERATED_DIR}/qzapp/ObjectNameMessages.cpp
  ${QZ_GENERATED_DIR}/qzapp/ObjectNameMessages.h
  ${QZ_GENERATED_DIR}/catalogue_ids.txt)
add_custom_command(OUTPUT ${QZ_GENERATED_SOURCES}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${QZ_GENERATED_DIR}/qzmsg ${QZ_GENERATED_DIR}/qzapp
  COMMAND qzmsggen ${QZ_CATALOGUE_DAT} ${QZ_GENERATED_DIR}
  DEPENDS qzmsggen ${QZ_CATALOGUE_DAT}
  COMMENT "Generating the message functions from the catalogue"
  VERBATIM)
target_sources(qzlib_objects PRIVATE ${QZ_GENERATED_DIR}/qzmsg/MessageFunctions.cpp
                                     ${QZ_GENERATED_DIR}/qzapp/ObjectNameMessages.cpp)
foreach(t qzlib_objects qzlib qzlib_internal)
  target_include_directories(${t} PUBLIC $<BUILD_INTERFACE:${QZ_GENERATED_DIR}>)
endforeach()
install(FILES ${QZ_GENERATED_DIR}/qzmsg/MessageFunctions.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qzlib/qzmsg)
install(FILES ${QZ_GENERATED_DIR}/qzapp/ObjectNameMessages.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qzlib/qzapp)
install(FILES ${QZ_CATALOGUE_DAT} DESTINATION ${CMAKE_INSTALL_LIBDIR})

# qz_place_catalogue(target): copies qzMessage.dat beside a program of the
# build tree, where the library's search finds it (the program's directory),
# as it finds the installed one beside the installed library.
# The copy is its own step, run at every build (it copies only a changed
# file), so that a catalogue edit reaches programs that are not relinked.
function(qz_place_catalogue target)
  add_custom_target(${target}_place_catalogue
    COMMAND ${CMAKE_COMMAND} -E copy_if_different ${QZ_CATALOGUE_DAT} $<TARGET_FILE_DIR:${target}>/qzMessage.dat
    DEPENDS ${QZ_CATALOGUE_DAT}
    VERBATIM)
  add_dependencies(${target}_place_catalogue qz_catalogue)
  add_dependencies(${target} ${target}_place_catalogue)
endfunction()
