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
  set(CMAKE_CXX_COMPILER_LAUNCHER "${MORROW_CCACHE}")
endif()

find_package(Threads REQUIRED)

# File names in log lines and in debug information are relative to the repository, so that neither depends on
# where a machine keeps it.
add_compile_options("-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=")

if(MORROW_SANITIZE)
  add_compile_options("-fsanitize=${MORROW_SANITIZE}" -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options("-fsanitize=${MORROW_SANITIZE}")
  # Instrumented programs are large: this linker takes a third of the time of binutils'.
  find_program(MORROW_LLD ld.lld)
  if(MORROW_LLD)
    add_link_options(-fuse-ld=lld)
  endif()
endif()

# morrow_computes(NAME): optimises a target in the sanitizers' builds, too. Nothing else is optimised there: most code
# hands on bytes and waits, and optimising what the checks add to it takes as long as the rest of its compilation.
function(morrow_computes name)
  if(MORROW_SANITIZE)
    target_compile_options(${name} PRIVATE -O1)
  endif()
endfunction()

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
endfunction()
