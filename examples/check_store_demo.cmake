# Runs store_demo and checks what it prints and the file that it saves.
file(REMOVE "${OUT}")
execute_process(COMMAND "${DEMO}" "${OUT}" RESULT_VARIABLE status OUTPUT_VARIABLE printed)
if(NOT status EQUAL 0 OR NOT printed STREQUAL "title: Dune\ntitle: Emma\nids: 1 3\n")
  message(FATAL_ERROR "store_demo: status ${status}, printed:\n${printed}")
endif()
file(READ "${OUT}" saved)
set(expected [[<?xml version="1.0" encoding="UTF-8"?>
<shelf>
  <book id="1" read="yes">
    <title>Dune</title>
  </book>
  <book id="3">
    <title>Walden</title>
  </book>
</shelf>
]])
if(NOT saved STREQUAL expected)
  message(FATAL_ERROR "store_demo saved:\n${saved}")
endif()
