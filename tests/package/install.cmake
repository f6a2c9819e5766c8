# Installs the build in BUILD_DIR below a directory of its own and looks at what is there.
# Run by ctest: cmake -DBUILD_DIR=... -DBIN=<directory> -DMAN=<directory>
#                     -DDATA=<directory> -P install.cmake

unset(ENV{DESTDIR})
set(prefix ${BUILD_DIR}/tests/installed)
file(REMOVE_RECURSE ${prefix})
execute_process(
  COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
  OUTPUT_QUIET
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "cmake --install ended with ${status}")
endif()

file(GLOB_RECURSE installed RELATIVE ${prefix} ${prefix}/*)
set(expected ${BIN}/updater ${BIN}/updater-release
  ${MAN}/man1/updater-release.1 ${MAN}/man1/updater.1 ${DATA}/doc/updater/copyright
  ${DATA}/updater/publish/nginx.conf ${DATA}/updater/publish/publish.sh)
list(SORT expected)
if(NOT installed STREQUAL expected)
  message(FATAL_ERROR "Installed: ${installed}")
endif()

# The installed program runs: without a mode it ends with 1.
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env
    QT_QPA_PLATFORM=offscreen TMPDIR=${prefix} XDG_RUNTIME_DIR=${prefix} ${prefix}/${BIN}/updater
  OUTPUT_QUIET ERROR_QUIET
  RESULT_VARIABLE status)
if(NOT status EQUAL 1)
  message(FATAL_ERROR "The installed updater ended with ${status}")
endif()

# The publisher's tool, too, and without a display.
execute_process(
  COMMAND ${prefix}/${BIN}/updater-release --version
  OUTPUT_QUIET ERROR_QUIET
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "The installed updater-release ended with ${status}")
endif()

# So does the publisher's script: without arguments it ends with 2.
find_program(BASH bash)
if(BASH)
  execute_process(
    COMMAND ${prefix}/${DATA}/updater/publish/publish.sh
    OUTPUT_QUIET ERROR_QUIET
    RESULT_VARIABLE status)
  if(NOT status EQUAL 2)
    message(FATAL_ERROR "The installed publish.sh ended with ${status}")
  endif()
endif()
file(REMOVE_RECURSE ${prefix})
