# HALVO_LIBCXX: a build with clang and its own C++ library, libc++, as on
# macOS and FreeBSD. Debian's Boost.JSON and GoogleTest libraries are built
# against libstdc++, so this build compiles both from their sources: Boost.JSON
# from its header-only form, GoogleTest from the source that libgtest-dev
# ships. The daemon, which needs more compiled Boost libraries, is left out.
option(HALVO_LIBCXX "Build halvoctl and its tests with clang's libc++" OFF)
if(NOT HALVO_LIBCXX)
  return()
endif()
if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  message(FATAL_ERROR "HALVO_LIBCXX needs clang: configure with -DCMAKE_CXX_COMPILER=clang++")
endif()
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-stdlib=libc++>)
add_link_options(-stdlib=libc++)
set(HALVO_BUILD_DAEMON OFF CACHE BOOL "" FORCE)

find_package(Boost 1.81 REQUIRED)
add_library(halvo_boost_json STATIC ${CMAKE_CURRENT_LIST_DIR}/boost_json_src.cpp)
target_link_libraries(halvo_boost_json PUBLIC Boost::headers)
target_compile_definitions(halvo_boost_json PUBLIC BOOST_JSON_NO_LIB)
add_library(Boost::json ALIAS halvo_boost_json)

if(HALVO_BUILD_TESTS)
  set(googletest_source /usr/src/googletest CACHE PATH "GoogleTest's sources")
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(${googletest_source} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  foreach(library gtest gtest_main gmock)
    if(NOT TARGET GTest::${library})
      add_library(GTest::${library} ALIAS ${library})
    endif()
  endforeach()
  set(GTest_FOUND ON)
endif()
