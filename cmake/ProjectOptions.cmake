# Interface targets that carry the project's compile options, so that every
# target opts in by linking them rather than by repeating flags.

add_library(halvo_warnings INTERFACE)
target_compile_options(halvo_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  -Wsign-conversion -Wformat=2 -Wold-style-cast)
if(HALVO_WERROR)
  target_compile_options(halvo_warnings INTERFACE -Werror)
endif()

add_library(halvo_sanitizers INTERFACE)
if(HALVO_SANITIZE)
  target_compile_options(halvo_sanitizers INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(halvo_sanitizers INTERFACE -fsanitize=address,undefined)
  # GCC 12 sees uninitialised members in std::regex's std::function states
  # once ASan instruments them: a false report, not a finding of ours.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(halvo_sanitizers INTERFACE -Wno-maybe-uninitialized)
  endif()
endif()

include(${CMAKE_CURRENT_LIST_DIR}/Platform.cmake)
halvo_platform_choices("${CMAKE_SYSTEM_NAME}" "${CMAKE_CXX_COMPILER_ID}" HALVO)

# Hardened programs: every object, since the libraries' code ends up in them.
# The checked buffer functions need optimisation; the sanitizer and fuzzing
# builds check more themselves and replace those functions.
if(NOT HALVO_SANITIZE AND NOT HALVO_BUILD_FUZZ)
  add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:${HALVO_HARDENING_COMPILE}>")
  add_link_options(${HALVO_HARDENING_LINK})
endif()

# Shipped executables link the C++ runtime in where it is a library of its
# own: the dynamic libstdc++ costs a measurable share of a short run's
# start-up. Sanitizer builds keep the dynamic runtime, which the sanitizer
# runtimes expect.
add_library(halvo_static_runtime INTERFACE)
if(NOT HALVO_SANITIZE)
  target_link_options(halvo_static_runtime INTERFACE ${HALVO_RUNTIME_LINK})
endif()

# The control utility lives a few milliseconds per command, most of them in
# loading: where the C library allows, it is linked wholly statically and
# starts as fast as a plain C client. Position independent where the
# toolchain allows, so that it keeps address randomisation. Memory checkers
# that replace the allocator at load time (valgrind) need the dynamic link:
# HALVO_STATIC_PROGRAM=OFF.
option(HALVO_STATIC_PROGRAM "Link halvoctl wholly statically where the system allows" ON)
add_library(halvo_static_program INTERFACE)
if(NOT HALVO_SANITIZE AND HALVO_STATIC_PROGRAM AND HALVO_PROGRAM_LINK)
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_LINK_OPTIONS ${HALVO_PROGRAM_LINK})
  check_cxx_source_compiles("int main() { return 0; }" HALVO_HAVE_PROGRAM_LINK)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(HALVO_HAVE_PROGRAM_LINK)
    target_link_options(halvo_static_program INTERFACE ${HALVO_PROGRAM_LINK})
  else()
    target_link_options(halvo_static_program INTERFACE ${HALVO_PROGRAM_FALLBACK})
  endif()
endif()

# libsystemd (notification, socket activation, the journal) where the system
# can have it and it is installed; halvod builds without it elsewhere, or
# when HALVO_USE_SYSTEMD is OFF.
option(HALVO_USE_SYSTEMD "Use libsystemd where the system has it" ON)
set(HALVO_HAVE_SYSTEMD OFF)
if(HALVO_MAY_USE_SYSTEMD AND HALVO_USE_SYSTEMD)
  find_package(PkgConfig QUIET)
  if(PkgConfig_FOUND)
    pkg_check_modules(SYSTEMD QUIET IMPORTED_TARGET libsystemd)
    if(SYSTEMD_FOUND)
      set(HALVO_HAVE_SYSTEMD ON)
    endif()
  endif()
endif()

# halvo_add_module(<name> DEPS <targets...>)
# Builds the folder's sources (all *.cpp but the *_test.cpp beside them) into
# a static library that the programs and the test suites link.
function(halvo_add_module name)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "_test\\.cpp$")
  if(NOT sources)
    # A folder with headers only so far.
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} INTERFACE ${ARG_DEPS} halvo_sanitizers)
    return()
  endif()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_DEPS} halvo_sanitizers PRIVATE halvo_warnings)
endfunction()
