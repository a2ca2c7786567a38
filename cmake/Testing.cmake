# halvo_add_tests(<target> [FOLDERS <folders...>] [SOURCES <files...>]
#                 LIBS <targets...> [TIMEOUT <seconds>])
# One test program from the *_test.cpp files of each folder (relative to the
# project's root) and any further sources, linked with the test support;
# ctest runs each of its test cases on its own.
function(halvo_add_tests target)
  cmake_parse_arguments(ARG "" "TIMEOUT" "FOLDERS;SOURCES;LIBS" ${ARGN})
  set(sources ${ARG_SOURCES})
  foreach(folder IN LISTS ARG_FOLDERS)
    file(GLOB found CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*_test.cpp)
    list(APPEND sources ${found})
  endforeach()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 60)
  endif()
  add_executable(${target} ${sources})
  target_link_libraries(${target} PRIVATE ${ARG_LIBS} halvo_test_support halvo_warnings)
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${ARG_TIMEOUT})
endfunction()
