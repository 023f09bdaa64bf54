# Classes for phones: the midlets, and the handset that runs them.
#
# Both are made by one build folder. Another one, say with a sanitizer, may take them from there.
set(MORROW_MIDLETS_BUILD_DIR "" CACHE PATH "Build folder whose midlets are taken instead of making them again")
if(MORROW_MIDLETS_BUILD_DIR)
  set(MORROW_JAVA_DIR "${MORROW_MIDLETS_BUILD_DIR}")
  return()
endif()
set(MORROW_JAVA_DIR "${CMAKE_BINARY_DIR}")

foreach(tool javac jar proguard)
  string(TOUPPER ${tool} name)
  find_program(MORROW_${name} ${tool} REQUIRED)
endforeach()
# Short runs: what the virtual machine would win by compiling its own code well, it spends on that.
set(MORROW_JAVAC_DESKTOP "${MORROW_JAVAC}" -J-XX:TieredStopAtLevel=1 -J-XX:+UseSerialGC -encoding UTF-8 -implicit:none)
set(MORROW_JAVAC_PHONE ${MORROW_JAVAC_DESKTOP} -Xlint:-options -source 8 -target 8)
# Archives do not depend on the time of the build.
set(MORROW_JAR_DATE --date=1980-01-01T00:00:02Z)

# compile_java(OUT FOLDERS ... OPTIONS compiler and its options ... DEPENDS ...): the classes of all sources below the
# folders, in the folder OUT of the build. The stamp beside it is what others depend on.
function(compile_java out)
  cmake_parse_arguments(arg "" "" "FOLDERS;OPTIONS;DEPENDS" ${ARGN})
  set(work "${CMAKE_CURRENT_BINARY_DIR}/${out}")
  set(sources)
  foreach(folder IN LISTS arg_FOLDERS)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.java")
    list(APPEND sources ${found})
  endforeach()
  add_custom_command(
    OUTPUT "${work}.stamp"
    COMMAND "${CMAKE_COMMAND}" -E rm -rf "${work}"
    COMMAND "${CMAKE_COMMAND}" -E make_directory "${work}" "${CMAKE_CURRENT_BINARY_DIR}/none"
    COMMAND ${arg_OPTIONS} -d "${work}" ${sources}
    COMMAND "${CMAKE_COMMAND}" -E touch "${work}.stamp"
    DEPENDS ${sources} ${arg_DEPENDS}
    VERBATIM
    COMMENT "Compiling the classes of ${out}")
endfunction()
