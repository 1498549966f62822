# Runs PROGRAM in FOLDER, emptied before, and fails unless it succeeds and prints exactly what the file EXPECTED holds.
file(REMOVE_RECURSE ${FOLDER})
file(MAKE_DIRECTORY ${FOLDER})
execute_process(COMMAND ${PROGRAM} WORKING_DIRECTORY ${FOLDER}
  RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
file(READ ${EXPECTED} expected)
if(NOT status EQUAL 0 OR NOT output STREQUAL expected)
  message(FATAL_ERROR "Exit status ${status}. Printed:\n${output}${errors}Expected:\n${expected}")
endif()
