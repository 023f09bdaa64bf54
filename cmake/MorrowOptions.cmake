# How every target of the house is compiled: language level, warnings, visibility, instrumentation.
#
# A target asks for all of it with morrow_target(NAME).

option(MORROW_BUILD_TESTS "Build the tests" ON)
option(MORROW_WERROR "Treat warnings as errors" ON)
set(MORROW_SANITIZE "" CACHE STRING "Value for -fsanitize, for example address,undefined or thread")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(MORROW_CCACHE ccache)
if(MORROW_CCACHE)
  # Else it would pass on every source that takes precompiled headers.
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros "${MORROW_CCACHE}")
endif()

find_package(Threads REQUIRED)

# File names in log lines and in debug information are relative to the repository, so that neither depends on
# where a machine keeps it.
add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=")

# Left to itself g++ tidies its memory up from 128 MiB on, a tenth of its time; in KiB. The largest source takes 1.1 GB then.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:SHELL:--param ggc-min-heapsize=500000>")
endif()

# Files and lines in debug information take a fifth of the compilers' time. Who only wants to know whether all is well sets
# this in the environment when a build folder is made; it stays as it was made, whoever builds there later.
set(without_lines OFF)
if("$ENV{MORROW_NO_LINES}")
  set(without_lines ON)
endif()
option(MORROW_NO_LINES "Leave files and lines out of debug information" ${without_lines})
if(MORROW_NO_LINES)
  add_compile_options(-g0)
endif()

if(MORROW_SANITIZE)
  add_compile_options("-fsanitize=${MORROW_SANITIZE}" -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options("-fsanitize=${MORROW_SANITIZE}")
  if(MORROW_SANITIZE MATCHES "address,undefined")
    # What stands behind a null pointer the address sanitizer finds: asking each time takes a sixth of the compilation.
    add_compile_options(-fno-sanitize=null)
  endif()
  # Instrumented programs are large: this linker takes a third of the time of binutils'.
  find_program(MORROW_LLD ld.lld)
  if(MORROW_LLD)
    add_link_options(-fuse-ld=lld)
  endif()
endif()

# morrow_precompiled(NAME HEADERS ...): headers of other people that most sources take are read once in the sanitizers'
# builds, where reading them was half of the work. The other builds have none, and so find the include that is missing.
# A source that is optimised otherwise cannot take them.
if(MORROW_SANITIZE)
  # What is precompiled fits libraries and programs alike.
  set(CMAKE_CXX_COMPILE_OPTIONS_PIE ${CMAKE_CXX_COMPILE_OPTIONS_PIC})
endif()
function(morrow_precompiled name)
  if(NOT MORROW_SANITIZE)
    return()
  endif()
  set(source "${CMAKE_BINARY_DIR}/precompiled/${name}.cpp")
  file(CONFIGURE OUTPUT "${source}" CONTENT "")
  add_library(${name} OBJECT "${source}")
  # Its time stamp in the file would make it another one with each build.
  target_compile_options(${name} PUBLIC "SHELL:-Xclang -fno-pch-timestamp")
  target_link_libraries(${name} PUBLIC Threads::Threads)
  target_precompile_headers(${name} PRIVATE ${ARGN})
endfunction()
set(MORROW_COMMON_HEADERS <algorithm> <array> <atomic> <charconv> <chrono> <cstring> <filesystem> <functional> <map> <memory> <mutex>
    <optional> <span> <string> <string_view> <thread> <utility> <vector>)
morrow_precompiled(morrow_precompiled ${MORROW_COMMON_HEADERS})

# morrow_computes(NAME): optimises a target in the sanitizers' builds, too. Nothing else is optimised there: most code
# hands on bytes and waits, and optimising what the checks add to it takes as long as the rest of its compilation.
function(morrow_computes name)
  if(MORROW_SANITIZE)
    target_compile_options(${name} PRIVATE -O1)
    set_target_properties(${name} PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)
  endif()
endfunction()

# Libraries that others link have names and symbols with versions: docs/compatibility.md says what they promise. The
# number goes up with a change that breaks who was linked before.
set(MORROW_SOVERSION 1)
set(MORROW_LIBRARY_FOLDER "lib/${CMAKE_LIBRARY_ARCHITECTURE}")

# morrow_library(NAME MAP): a shared library that shows the symbols of the version script alone.
function(morrow_library name map)
  set_target_properties(${name} PROPERTIES SOVERSION ${MORROW_SOVERSION} LINK_DEPENDS "${map}")
  target_link_options(${name} PRIVATE "LINKER:--version-script=${map}")
endfunction()

# morrow_described(NAME): the types of a library's interface stand in its debug information, which a test reads.
function(morrow_described name)
  target_compile_options(${name} PRIVATE "$<$<CONFIG:RelWithDebInfo>:-g>")
endfunction()

# morrow_target(NAME [PRECOMPILED]): with the headers of that library instead of the usual ones.
function(morrow_target name)
  target_include_directories(${name} PUBLIC "${CMAKE_SOURCE_DIR}" "${CMAKE_SOURCE_DIR}/src")
  target_compile_options(${name} PRIVATE -Wall -Wextra -Wpedantic -Wconversion
                                         "$<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>"
                                         # Which clang, other than g++, has -Wconversion bring along.
                                         "$<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>"
                                         -Wnon-virtual-dtor -Woverloaded-virtual)
  if(MORROW_WERROR)
    target_compile_options(${name} PRIVATE -Werror)
  endif()
  target_link_libraries(${name} PUBLIC Threads::Threads)
  if(MORROW_SANITIZE)
    set(precompiled ${ARGN} morrow_precompiled)
    list(GET precompiled 0 precompiled)
    target_precompile_headers(${name} REUSE_FROM ${precompiled})
  endif()
endfunction()
