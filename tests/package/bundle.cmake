# Installs the updater into an application bundle, with UPDATER_INSTALL_INTO_BUNDLE.
# Run by ctest: cmake -DUPDATER=<executable> -DSOURCE_DIR=... -DBUILD_DIR=... -DGENERATOR=...
#                     -DCXX_COMPILER=... -DQT_MAJOR=5|6 -P bundle.cmake

cmake_minimum_required(VERSION 3.16)
unset(ENV{DESTDIR})
set(work ${BUILD_DIR}/tests/bundle)
set(app "${work}/Some Editor.app")
file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${work}/tmp)
file(WRITE "${app}/Contents/MacOS/Some Editor" "executable")

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

# A build directory with that option; the program in it is the one that is built already.
run(0 ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${work}/build -G ${GENERATOR}
  -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DQT_MAJOR=${QT_MAJOR} -DBUILD_TESTING=OFF
  "-DUPDATER_INSTALL_INTO_BUNDLE=${app}")
# Into what is no bundle nothing is installed.
file(WRITE ${work}/None.app/file "")
run(1 ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${work}/none -G ${GENERATOR}
  -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DQT_MAJOR=${QT_MAJOR} -DBUILD_TESTING=OFF
  "-DUPDATER_INSTALL_INTO_BUNDLE=${work}/None.app")
if(NOT output MATCHES "there is no[ \n]+[^\n]*None.app/Contents/MacOS" OR EXISTS ${work}/none/cmake_install.cmake)
  message(FATAL_ERROR "Without a bundle:\n${output}")
endif()
# A path from where cmake runs, as it may be given.
run(0 ${CMAKE_COMMAND} -E chdir ${work}
  ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${work}/build "-DUPDATER_INSTALL_INTO_BUNDLE=Some Editor.app")
file(COPY ${UPDATER} DESTINATION ${work}/build)
run(0 ${CMAKE_COMMAND} --install ${work}/build --prefix ${work}/prefix)

file(GLOB_RECURSE installed RELATIVE ${app} "${app}/*" ${work}/prefix/*)
if(NOT installed STREQUAL "Contents/MacOS/Some Editor;Contents/MacOS/updater")
  message(FATAL_ERROR "Installed: ${installed}")
endif()
file(READ "${app}/Contents/MacOS/Some Editor" executable)
if(NOT executable STREQUAL "executable")
  message(FATAL_ERROR "The application's own executable has changed")
endif()
# Without a mode it ends with 1.
run(1 ${CMAKE_COMMAND} -E env
  QT_QPA_PLATFORM=offscreen TMPDIR=${work}/tmp XDG_RUNTIME_DIR=${work}/tmp
  "${app}/Contents/MacOS/updater")
file(REMOVE_RECURSE ${work})
