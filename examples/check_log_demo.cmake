# Runs log_demo on a log file holding a stale line and checks the lines that it writes.
file(WRITE "${LOG}" "stale line\n")
execute_process(COMMAND "${DEMO}" "${LOG}" RESULT_VARIABLE status OUTPUT_VARIABLE console)
if(NOT status EQUAL 0 OR NOT console STREQUAL "")
  message(FATAL_ERROR "log_demo: status ${status}, console output '${console}'")
endif()
file(READ "${LOG}" written)
string(REGEX REPLACE "\\[[0-9][0-9]\\.[0-9][0-9]\\.[0-9][0-9][0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]\\] "
       "" bodies "${written}")
set(expected "     T| ...starting\n     D| Squaring 7\n     T| ...exiting\n     I| Result: 49\n")
if(NOT bodies STREQUAL expected)
  message(FATAL_ERROR "log file holds:\n${written}")
endif()
