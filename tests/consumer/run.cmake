# Installs the build at BIN into a private prefix, then configures, builds and runs the consumer
# project at SRC against it with find_package(ttservice).
set(prefix ${BIN}/consumer-install)
set(cbuild ${BIN}/consumer-build)
file(REMOVE_RECURSE ${prefix} ${cbuild})
foreach(step
    "${CMAKE_COMMAND};--install;${BIN};--prefix;${prefix}"
    "${CMAKE_COMMAND};-S;${SRC};-B;${cbuild};-DCMAKE_PREFIX_PATH=${prefix}"
    "${CMAKE_COMMAND};--build;${cbuild}"
    "${cbuild}/consumer")
  execute_process(COMMAND ${step} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "step failed (${rc}): ${step}\n${out}\n${err}")
  endif()
endforeach()
message(STATUS "consumer ran: ${out}")
