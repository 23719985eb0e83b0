# Tests: GoogleTest from Debian's sources built with our toolchain, run under Wine
# (CMAKE_CROSSCOMPILING_EMULATOR) in a prefix of our own inside the build folder.
option(DISKBROKER_BUILD_TESTS "Build tests and benchmarks" ON)
set(DISKBROKER_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest sources")
set(DISKBROKER_WINEPREFIX ${CMAKE_BINARY_DIR}/wineprefix)
set(DISKBROKER_TEST_TIMEOUT 120 CACHE STRING "Per-test timeout in seconds")

if(DISKBROKER_BUILD_TESTS)
  enable_testing()
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
  add_subdirectory(${DISKBROKER_GTEST_SOURCE} ${CMAKE_BINARY_DIR}/_googletest EXCLUDE_FROM_ALL)

  if(CMAKE_CROSSCOMPILING)
    add_test(NAME wine.prefix.start
             COMMAND ${CMAKE_SOURCE_DIR}/cmake/wine/prefix.sh start ${DISKBROKER_WINEPREFIX}
                     $<TARGET_FILE:wine_desktop_keeper>)
    set_tests_properties(wine.prefix.start PROPERTIES FIXTURES_SETUP wine)
    add_test(NAME wine.prefix.stop
             COMMAND ${CMAKE_SOURCE_DIR}/cmake/wine/prefix.sh stop ${DISKBROKER_WINEPREFIX})
    set_tests_properties(wine.prefix.stop PROPERTIES FIXTURES_CLEANUP wine)
  endif()
endif()

# What Wine prints when a process crashes without our exit on crash (a program
# that has none, or a crash it cannot handle): the test fails whatever its
# exit code says.
set(DISKBROKER_WINE_CRASH "wine: Unhandled|Unhandled exception:")

# diskbroker_exit_on_crash(<target>)
# A program that crashes ends with exit code 70 instead of what Wine makes of
# the crash (0 at times, which would pass the test).
function(diskbroker_exit_on_crash target)
  target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/testing/support/src/exit_on_crash.cpp)
  target_link_libraries(${target} PRIVATE skclass_mini)
endfunction()

# diskbroker_add_test(<name> SOURCES ... [LIBS ...] [DEPENDS targets...])
# One test program per area; CTest runs it whole (it groups many cases).
function(diskbroker_add_test name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS;DEPENDS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  diskbroker_strict(${name})
  target_link_libraries(${name} PRIVATE GTest::gtest GTest::gtest_main ${T_LIBS})
  diskbroker_exit_on_crash(${name})
  if(T_DEPENDS)
    add_dependencies(${name} ${T_DEPENDS})
  endif()
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES
    TIMEOUT ${DISKBROKER_TEST_TIMEOUT}
    ENVIRONMENT "DISKBROKER_WINEPREFIX=${DISKBROKER_WINEPREFIX}"
    FAIL_REGULAR_EXPRESSION "${DISKBROKER_WINE_CRASH}")
  if(CMAKE_CROSSCOMPILING)
    set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED wine)
  endif()
endfunction()

# diskbroker_add_wine_script(<name> <script> <program target> [ARGS ...]
#                            [FIXTURES ...] [PROPERTIES ...])
# A shell script that drives a Windows program through the Wine harness, run as
# <script> <wine run.sh> <program> [ARGS...] in the prefix fixture (and FIXTURES).
function(diskbroker_add_wine_script name script program)
  if(NOT CMAKE_CROSSCOMPILING)
    return()
  endif()
  cmake_parse_arguments(S "" "" "ARGS;FIXTURES;PROPERTIES" ${ARGN})
  set(fixtures wine ${S_FIXTURES})
  add_test(NAME ${name}
           COMMAND ${script} ${CMAKE_SOURCE_DIR}/cmake/wine/run.sh $<TARGET_FILE:${program}> ${S_ARGS})
  set_tests_properties(${name} PROPERTIES
    TIMEOUT ${DISKBROKER_TEST_TIMEOUT}
    FIXTURES_REQUIRED "${fixtures}"
    ENVIRONMENT "DISKBROKER_WINEPREFIX=${DISKBROKER_WINEPREFIX}"
    FAIL_REGULAR_EXPRESSION "${DISKBROKER_WINE_CRASH}"
    ${S_PROPERTIES})
endfunction()

# Adds every immediate subfolder of the current folder that has a CMakeLists.txt,
# so each area owns its folder without editing a shared list.
function(diskbroker_add_child_dirs)
  file(GLOB children LIST_DIRECTORIES true RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR}/*)
  list(SORT children)
  foreach(child IN LISTS children)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${child}/CMakeLists.txt)
      add_subdirectory(${child})
    endif()
  endforeach()
endfunction()
