# A consumer project outside the tree builds against the installed package. Not in sanitizer
# builds: the consumer is an ordinary build and cannot link sanitized libraries.
if(TTSERVICE_TSAN)
  return()
endif()
add_test(NAME consumer_find_package
  COMMAND ${CMAKE_COMMAND} -DBIN=${PROJECT_BINARY_DIR} -DSRC=${CMAKE_CURRENT_SOURCE_DIR}/consumer
          -P ${CMAKE_CURRENT_SOURCE_DIR}/consumer/run.cmake)
set_tests_properties(consumer_find_package PROPERTIES TIMEOUT 600 RUN_SERIAL TRUE)
