# Runs PROGRAM and compares its output with the file EXPECTED. Called by CTest.
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE actual RESULT_VARIABLE result TIMEOUT 60)
file(READ ${EXPECTED} expected)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} ended with ${result}; it printed:\n${actual}")
endif()
if(NOT actual STREQUAL expected)
  message(FATAL_ERROR "${PROGRAM} printed:\n${actual}\nexpected:\n${expected}")
endif()
