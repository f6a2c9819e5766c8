# What the scripts in this directory share. A script that does not find what it expects ends with an
# error:
#
#   cmake_minimum_required(VERSION 3.16)
#   include(${CMAKE_CURRENT_LIST_DIR}/functions.cmake)
#   begin(${BUILD_DIR}/tests/example)
#   run(0 ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${work}/prefix)
#   expect_output("Installing: ")
#   expect_files(${work}/prefix bin/updater)
#   end()

# begin(DIRECTORY): starts the test in an empty directory of its own, which is ${work} from now on.
# Programs have their temporary files there.
macro(begin directory)
  set(work ${directory})
  file(REMOVE_RECURSE ${work})
  file(MAKE_DIRECTORY ${work}/tmp)
  unset(ENV{DESTDIR})
  set(ENV{TMPDIR} ${work}/tmp)
  set(ENV{XDG_RUNTIME_DIR} ${work}/tmp)
endmacro()

# end(): removes what the test has made.
macro(end)
  file(REMOVE_RECURSE ${work})
endmacro()

# run(STATUS COMMAND...): runs a command that is expected to end with that exit status. What it has
# printed is ${output}.
function(run expected)
  execute_process(
    COMMAND ${ARGN}
    OUTPUT_VARIABLE output
    ERROR_VARIABLE output
    RESULT_VARIABLE status)
  if(NOT status EQUAL expected)
    message(FATAL_ERROR "\"${ARGN}\" ended with ${status}:\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

# configure(STATUS SOURCE BUILD OPTION...): runs cmake as run() does, for the same compiler and Qt.
macro(configure expected source build)
  run(${expected} ${CMAKE_COMMAND} -S ${source} -B ${build} -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DQT_MAJOR=${QT_MAJOR} ${ARGN})
endmacro()

# expect_output(REGEX): looks at the output of the last run().
function(expect_output regex)
  if(NOT output MATCHES "${regex}")
    message(FATAL_ERROR "No \"${regex}\" in:\n${output}")
  endif()
endfunction()

# expect_text(FILE TEXT): looks at the whole contents of a file.
function(expect_text file text)
  file(READ "${file}" contents)
  if(NOT contents STREQUAL text)
    message(FATAL_ERROR "${file}:\n${contents}")
  endif()
endfunction()

# expect_files(DIRECTORY FILE...): looks at the relative names of all files below a directory.
function(expect_files directory)
  file(GLOB_RECURSE found RELATIVE "${directory}" "${directory}/*")
  set(expected ${ARGN})
  list(SORT found)
  list(SORT expected)
  if(NOT "${found}" STREQUAL "${expected}")
    message(FATAL_ERROR "${directory} has: ${found}\nexpected: ${expected}")
  endif()
endfunction()

# The start of a command line: runs a program with windows without a display.
set(offscreen ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen)

# What an installation leaves below its prefix.
set(installed_files
  ${BIN}/updater
  ${BIN}/updater-release
  ${DATA}/doc/updater/copyright
  ${DATA}/updater/publish/nginx.conf
  ${DATA}/updater/publish/publish.sh
  ${MAN}/man1/updater-release.1
  ${MAN}/man1/updater.1)
if(GUARD)
  list(APPEND installed_files ${BIN}/updater-guard ${MAN}/man1/updater-guard.1)
endif()
