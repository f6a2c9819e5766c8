# Configures a project that has this one as a part, builds its program, which uses the host kit, and
# looks at what of this project shows there.
# Run by ctest: cmake -DSOURCE_DIR=... -DWORK=<directory> -DGENERATOR=... -DCXX_COMPILER=...
#                     -DQT_MAJOR=5|6 -P subproject.cmake

cmake_minimum_required(VERSION 3.16)
unset(ENV{DESTDIR})
file(REMOVE_RECURSE ${WORK})

function(run)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE output ERROR_VARIABLE output RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "\"${ARGN}\" ended with ${status}:\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} -S ${CMAKE_CURRENT_LIST_DIR}/subproject -B ${WORK}/build -G ${GENERATOR}
  -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DQT_MAJOR=${QT_MAJOR} -DUPDATER_SOURCE=${SOURCE_DIR})
run(${CMAKE_COMMAND} --build ${WORK}/build --target viewer)

# Only the parent's own test, files and packages.
run(${CMAKE_CTEST_COMMAND} --test-dir ${WORK}/build -N)
if(NOT output MATCHES "Total Tests: 1\n")
  message(FATAL_ERROR "Tests of the parent:\n${output}")
endif()
run(${CMAKE_COMMAND} --install ${WORK}/build --prefix ${WORK}/prefix)
file(GLOB_RECURSE installed RELATIVE ${WORK}/prefix ${WORK}/prefix/*)
if(NOT installed STREQUAL "bin/viewer")
  message(FATAL_ERROR "Installed: ${installed}")
endif()
if(EXISTS ${WORK}/build/CPackConfig.cmake)
  message(FATAL_ERROR "The parent has packages that it did not ask for")
endif()

# Options of this project cannot be taken for the parent's.
file(STRINGS ${SOURCE_DIR}/CMakeLists.txt options REGEX "^ *(option\\(|set\\(.* CACHE )")
list(LENGTH options count)
if(count LESS 7)
  message(FATAL_ERROR "Only ${count} options found: ${options}")
endif()
list(FILTER options EXCLUDE REGEX "^ *(option|set)\\((UPDATER_[A-Z_]+|QT_MAJOR|CMAKE_BUILD_TYPE) ")
if(options)
  message(FATAL_ERROR "Options without the prefix: ${options}")
endif()
file(REMOVE_RECURSE ${WORK})
