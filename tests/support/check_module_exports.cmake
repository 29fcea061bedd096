cmake_minimum_required(VERSION 3.25)
# Checks the dynamic symbols of one module: no STB_GNU_UNIQUE symbol, and no
# defined export other than those in ALLOWED.
# cmake -DREADELF=... -DMODULE=path -DALLOWED=a,b -P check_module_exports.cmake
string(REPLACE "," ";" ALLOWED "${ALLOWED}")
execute_process(COMMAND ${READELF} --dyn-syms --wide ${MODULE}
  OUTPUT_VARIABLE table RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${READELF} failed on ${MODULE}")
endif()

string(REPLACE "\n" ";" lines "${table}")
set(problems "")
foreach(line IN LISTS lines)
  # Num: Value Size Type Bind Vis Ndx Name
  if(NOT line MATCHES "^ *[0-9]+: +[0-9a-f]+ +[0-9]+ +([A-Z_]+) +([A-Z_]+) +([A-Z_]+) +([A-Z0-9_]+) +([^ ]+)")
    continue()
  endif()
  set(bind ${CMAKE_MATCH_2})
  set(ndx ${CMAKE_MATCH_4})
  set(name ${CMAKE_MATCH_5})
  string(REGEX REPLACE "@.*" "" name "${name}")
  if(bind STREQUAL "UNIQUE")
    list(APPEND problems "unique symbol ${name}")
  elseif(NOT ndx STREQUAL "UND" AND NOT bind STREQUAL "LOCAL" AND NOT name IN_LIST ALLOWED)
    list(APPEND problems "unexpected export ${name}")
  endif()
endforeach()

if(problems)
  list(JOIN problems "\n  " text)
  message(FATAL_ERROR "${MODULE}:\n  ${text}")
endif()
message(STATUS "${MODULE}: exports only ${ALLOWED}")
