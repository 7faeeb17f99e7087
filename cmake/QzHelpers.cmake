# The project's own build helpers: module folders, tests and benchmarks call
# these and nothing else.

# qz_add_sources(file...): adds sources of the calling folder to libqzlib.
function(qz_add_sources)
  foreach(src IN LISTS ARGN)
    target_sources(qzlib_objects PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/${src})
  endforeach()
endfunction()

# qz_link_libraries([PUBLIC lib...] [PRIVATE lib...]): libraries the library
# uses, given to its objects (for their include paths) and to both of its
# linked forms.
function(qz_link_libraries)
  cmake_parse_arguments(L "" "" "PUBLIC;PRIVATE" ${ARGN})
  foreach(t qzlib_objects qzlib qzlib_internal)
    target_link_libraries(${t} PUBLIC ${L_PUBLIC} PRIVATE ${L_PRIVATE})
  endforeach()
endfunction()

# The library as the test suites link it: every object, all symbols visible.
set(QZ_INTERNAL_LIB "$<LINK_LIBRARY:WHOLE_ARCHIVE,qzlib_internal>")

# qz_add_headers(file...): public headers of the calling folder, installed
# under include/qzlib/<folder>/.
function(qz_add_headers)
  file(RELATIVE_PATH rel ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  foreach(hdr IN LISTS ARGN)
    get_filename_component(sub ${hdr} DIRECTORY)
    install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/${hdr}
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qzlib/${rel}/${sub})
  endforeach()
endfunction()

# qz_add_build_context(target APPLICATION name): gives a program the
# BuildContext_ symbols a host defines (tools/buildcontext/BuildContext.cpp),
# naming it `name`, and exports them from the executable so the library finds
# them with dlsym even where it is linked statically (the test suites).
function(qz_add_build_context target)
  cmake_parse_arguments(B "" "APPLICATION" "" ${ARGN})
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools/buildcontext/BuildContext.cpp)
  target_compile_definitions(${target} PRIVATE
    "QZ_BUILD_APPLICATION=\"${B_APPLICATION}\"" "QZ_BUILD_VERSION=\"${PROJECT_VERSION}\""
    "QZ_BUILD_CONFIG=\"${CMAKE_BUILD_TYPE}\"" "QZ_BUILD_OS=\"${CMAKE_SYSTEM_NAME}\""
    "QZ_BUILD_ARCH=\"${CMAKE_SYSTEM_PROCESSOR}\"")
  target_link_options(${target} PRIVATE "-Wl,--export-dynamic-symbol=BuildContext_*")
endfunction()

# qz_add_test(NAME name SOURCES file... [LIBS lib...] [APPLICATION name]): a
# GoogleTest binary linked with the library and the shared test support,
# registered with CTest; its application name is "unittest" unless given.
function(qz_add_test)
  cmake_parse_arguments(T "" "NAME;APPLICATION" "SOURCES;LIBS" ${ARGN})
  if(NOT T_APPLICATION)
    set(T_APPLICATION unittest)
  endif()
  add_executable(${T_NAME} ${T_SOURCES})
  target_compile_options(${T_NAME} PRIVATE -Wall -Wextra)
  target_link_libraries(${T_NAME} PRIVATE ${QZ_INTERNAL_LIB} qz_test_support GTest::gtest GTest::gmock GTest::gtest_main ${T_LIBS})
  qz_add_build_context(${T_NAME} APPLICATION ${T_APPLICATION})
  qz_place_catalogue(${T_NAME})
  qz_place_charsets(${T_NAME})
  gtest_discover_tests(${T_NAME} DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "TZ=UTC")
endfunction()

# qz_add_bench(NAME name SOURCES file... [LIBS lib...]): a Google Benchmark binary.
function(qz_add_bench)
  cmake_parse_arguments(B "" "NAME" "SOURCES;LIBS" ${ARGN})
  add_executable(${B_NAME} ${B_SOURCES})
  target_compile_options(${B_NAME} PRIVATE -Wall -Wextra)
  target_link_libraries(${B_NAME} PRIVATE qzlib benchmark::benchmark ${B_LIBS})
  qz_place_catalogue(${B_NAME})
  qz_place_charsets(${B_NAME})
endfunction()

# qz_add_fuzz(NAME name SOURCES file... [LIBS lib...]): a libFuzzer target, on
# the library as the tests link it (readers reach what lies behind the API).
function(qz_add_fuzz)
  cmake_parse_arguments(F "" "NAME" "SOURCES;LIBS" ${ARGN})
  add_executable(${F_NAME} ${F_SOURCES})
  target_compile_options(${F_NAME} PRIVATE -Wall -Wextra -fsanitize=fuzzer)
  target_link_options(${F_NAME} PRIVATE -fsanitize=fuzzer)
  target_link_libraries(${F_NAME} PRIVATE ${QZ_INTERNAL_LIB} ${F_LIBS})
  qz_place_catalogue(${F_NAME})
  qz_place_charsets(${F_NAME})
endfunction()

# Sanitizers apply to the library and to everything linked with it.
macro(qz_apply_sanitizers)
  if(QZ_SANITIZE)
    set(_qz_san "")
    foreach(s IN LISTS QZ_SANITIZE)
      list(APPEND _qz_san "-fsanitize=${s}")
    endforeach()
    add_compile_options(${_qz_san} -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(${_qz_san})
  endif()
endmacro()
