# Installs the library into an empty folder, moves that folder, and builds and runs a stranger's program against it,
# found with find_package and found with pkg-config. KIND is Shared (installs the build under test) or Static
# (builds the archives first; with a compiler cache their objects are those of the shared build).

function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    string(JOIN " " command ${ARGV})
    message(FATAL_ERROR "${command}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_greeting program)
  run(${program} ${FOLDER})
  if(NOT output STREQUAL "3 records\n")
    message(FATAL_ERROR "${program} said: ${output}")
  endif()
endfunction()

file(REMOVE_RECURSE ${FOLDER})
file(MAKE_DIRECTORY ${FOLDER})
if(KIND STREQUAL Static)
  run(${CMAKE_COMMAND} -S ${SOURCE_FOLDER} -B ${FOLDER}/build -G ${GENERATOR} -DBUILD_SHARED_LIBS=OFF
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE=-O2 -DCMAKE_CXX_COMPILER=${COMPILER}
    -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER} -DQVLIB_BUILD_TESTS=OFF -DQVLIB_BUILD_TOOLS=OFF
    -DQVLIB_BUILD_EXAMPLES=OFF -DQVLIB_BUILD_BENCHMARKS=OFF)
  set(BUILD_FOLDER ${FOLDER}/build)
  run(${CMAKE_COMMAND} --build ${BUILD_FOLDER})
endif()

# Installed in one place and used in another: nothing may remember where it was put or built. Debug information, which
# does, is stripped.
run(${CMAKE_COMMAND} --install ${BUILD_FOLDER} --prefix ${FOLDER}/first --strip)
file(RENAME ${FOLDER}/first ${FOLDER}/prefix)
file(GLOB_RECURSE installed LIST_DIRECTORIES false ${FOLDER}/prefix/*)
foreach(path IN LISTS installed)
  foreach(machine_path ${SOURCE_FOLDER} ${FOLDER}/first)
    execute_process(COMMAND grep -q -F ${machine_path} ${path} RESULT_VARIABLE status)
    if(NOT status EQUAL 1)
      message(FATAL_ERROR "${path} holds ${machine_path}")
    endif()
  endforeach()
endforeach()

# The tool comes with its manual page and its completion.
if(KIND STREQUAL Shared AND EXISTS ${FOLDER}/prefix/bin/qv)
  foreach(path share/man/man1/qv.1 share/bash-completion/completions/qv)
    file(SIZE ${FOLDER}/prefix/${path} size)
    if(size EQUAL 0)
      message(FATAL_ERROR "${path} is empty")
    endif()
  endforeach()
endif()

# find_package
run(${CMAKE_COMMAND} -S ${SOURCE_FOLDER}/tests/house/stranger -B ${FOLDER}/by-package -G ${GENERATOR}
  -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_PREFIX_PATH=${FOLDER}/prefix)
run(${CMAKE_COMMAND} --build ${FOLDER}/by-package)
expect_greeting(${FOLDER}/by-package/stranger)

# pkg-config
find_program(PKG_CONFIG NAMES pkgconf pkg-config REQUIRED)
file(GLOB_RECURSE pc ${FOLDER}/prefix/*/QVLib.pc)
get_filename_component(pc_folder "${pc}" DIRECTORY)
get_filename_component(lib_folder "${pc_folder}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_folder})
run(${PKG_CONFIG} --cflags --libs QVLib)
separate_arguments(flags UNIX_COMMAND "${output}")
run(${COMPILER} -std=c++20 ${SOURCE_FOLDER}/tests/house/stranger/main.cpp -o ${FOLDER}/by-pkg-config ${flags})
set(ENV{LD_LIBRARY_PATH} ${lib_folder})
expect_greeting(${FOLDER}/by-pkg-config)

# The stranger got what was asked for.
run(objdump -p ${FOLDER}/by-pkg-config)
string(REGEX MATCH "NEEDED +libQVLib\\.so\\.[0-9]+\\.[0-9]+\n" needed "${output}")
if(KIND STREQUAL Shared AND NOT needed OR KIND STREQUAL Static AND needed)
  message(FATAL_ERROR "The ${KIND} library was expected, but the program needs:\n${output}")
endif()
