# morrow_test(NAME SOURCES ... [LIBRARIES ...] [TIMEOUT SECONDS] [CONCURRENT])
#
# One GoogleTest program, NAME, and one entry of the test run for it. CONCURRENT marks programs whose subject is
# threads: they are built and run under the thread sanitizer as well.

if(MORROW_BUILD_TESTS)
  find_package(GTest REQUIRED)
  morrow_precompiled(morrow_precompiled_tests ${MORROW_COMMON_HEADERS} <gtest/gtest.h>)
  if(TARGET morrow_precompiled_tests)
    target_link_libraries(morrow_precompiled_tests PUBLIC GTest::gtest)
  endif()
  # Debian's packages are made for Debian's interpreter, not for one that stands before it in the path.
  find_program(MORROW_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
  if(NOT MORROW_PYTHON)
    find_program(MORROW_PYTHON NAMES python3 REQUIRED)
  endif()
endif()

function(morrow_test name)
  cmake_parse_arguments(arg "CONCURRENT" "TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(${name} ${arg_SOURCES})
  morrow_target(${name} morrow_precompiled_tests)
  # A test's own text is not what is tested: checks of its arithmetic cost a third of its build.
  if(MORROW_SANITIZE MATCHES "undefined")
    target_compile_options(${name} PRIVATE -fno-sanitize=undefined)
  endif()
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT})
  if(arg_CONCURRENT)
    set_property(GLOBAL APPEND PROPERTY MORROW_CONCURRENT_TESTS ${name})
  endif()
endfunction()
