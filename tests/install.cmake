# Installs the build in BUILD_DIR below a directory of its own and looks at what is there.
# Run by ctest: cmake -DBUILD_DIR=... -DBIN=<directory> -DMAN=<directory> -P install.cmake

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
  ${MAN}/man1/updater-release.1 ${MAN}/man1/updater.1)
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
file(REMOVE_RECURSE ${prefix})
