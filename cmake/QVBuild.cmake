# How every target of this tree is compiled, and the helpers that keep each folder's list short.

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
  set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
  set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
endif()

# While the version begins with 0, a minor release may change the binary interface, so it is part of the SONAME.
set(QVLIB_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})

# Private settings of our own targets; never exported to users.
add_library(QVLib_build_settings INTERFACE)
target_compile_features(QVLib_build_settings INTERFACE cxx_std_20)
target_compile_definitions(QVLib_build_settings INTERFACE _FILE_OFFSET_BITS=64)
# Without semantic interposition, calls inside a library go straight to their target, not through its symbol table.
# The prefix map keeps the build machine's paths out of assertion messages and thereby out of shipped libraries.
target_compile_options(QVLib_build_settings INTERFACE
  -Wall -Wextra -Wconversion -Wshadow $<$<BOOL:${QVLIB_WARNINGS_AS_ERRORS}>:-Werror>
  -fno-semantic-interposition -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
if(QVLIB_SANITIZE)
  target_compile_options(QVLib_build_settings INTERFACE
    -fsanitize=${QVLIB_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(QVLib_build_settings INTERFACE -fsanitize=${QVLIB_SANITIZE})
endif()

# qv_ship_library(NAME)
# Version, include folders and install rules that both shipped libraries share. No export macro is defined for
# shared builds, so that shared and static objects are the same and a compiler cache serves both.
function(qv_ship_library name)
  add_library(QVLib::${name} ALIAS ${name})
  target_compile_features(${name} PUBLIC cxx_std_20)
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${QVLIB_SOVERSION} DEFINE_SYMBOL "" INSTALL_RPATH "$ORIGIN")
endfunction()

# qv_add_subsystem(NAME SOURCES ... [STANDS_ON ...] [LIBRARIES ...])
# One folder of QVLib/: an object library that names what it stands on, gathered into QVLib.
function(qv_add_subsystem name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;STANDS_ON;LIBRARIES")
  set(target QVLib_${name})
  add_library(${target} OBJECT ${arg_SOURCES})
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(${target} PUBLIC QVPlatform PRIVATE QVLib_build_settings ${arg_LIBRARIES})
  foreach(floor IN LISTS arg_STANDS_ON)
    target_link_libraries(${target} PUBLIC QVLib_${floor})
  endforeach()
  set_property(GLOBAL APPEND PROPERTY QVLIB_SUBSYSTEMS ${name})
  set_property(GLOBAL APPEND PROPERTY QVLIB_LIBRARIES ${arg_LIBRARIES})
endfunction()

# qv_add_test(NAME SOURCES ... [LIBRARIES ...] [THREADS])
# One GoogleTest program per folder of tests/. THREADS marks programs that also run under ThreadSanitizer; the
# target thread-tests builds just those.
function(qv_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "THREADS" "" "SOURCES;LIBRARIES")
  add_executable(${name} ${arg_SOURCES})
  # g++ 12 takes the joining of std::strings for accesses out of bounds when it optimises (its bug 105651).
  target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds -Wno-restrict -Wno-stringop-overflow>)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE QVLib QVTestSupport GTest::gmock GTest::gtest_main
    QVLib_build_settings ${arg_LIBRARIES})
  target_precompile_headers(${name} REUSE_FROM QVTestSupport)
  set(properties TIMEOUT 300)
  if(arg_THREADS)
    list(APPEND properties LABELS threads)
    if(NOT TARGET thread-tests)
      add_custom_target(thread-tests)
    endif()
    add_dependencies(thread-tests ${name})
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()

# qv_add_example(NAME)
# One program of examples/, and a test that runs it in an empty folder and compares what it prints with
# expected/NAME.txt.
function(qv_add_example name)
  add_executable(${name} ${name}.cpp)
  target_link_libraries(${name} PRIVATE QVLib::QVLib QVLib_build_settings)
  if(QVLIB_BUILD_TESTS)
    add_test(NAME Example.${name} COMMAND ${CMAKE_COMMAND}
      -D PROGRAM=$<TARGET_FILE:${name}>
      -D EXPECTED=${CMAKE_CURRENT_SOURCE_DIR}/expected/${name}.txt
      -D FOLDER=${CMAKE_CURRENT_BINARY_DIR}/run/${name}
      -P ${PROJECT_SOURCE_DIR}/tests/house/RunExample.cmake)
    set_tests_properties(Example.${name} PROPERTIES TIMEOUT 60)
  endif()
endfunction()

# qv_add_benchmark(NAME [LIBRARIES ...])
# One Google Benchmark program NAME.cpp of benchmarks/; the target benchmarks builds all of them.
function(qv_add_benchmark name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LIBRARIES")
  add_executable(${name} ${name}.cpp)
  target_link_libraries(${name} PRIVATE QVLib benchmark::benchmark_main QVLib_build_settings ${arg_LIBRARIES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin/benchmarks)
  if(NOT TARGET benchmarks)
    add_custom_target(benchmarks)
  endif()
  add_dependencies(benchmarks ${name})
endfunction()
