# Installs the updater and its guard into an application bundle, with UPDATER_INSTALL_INTO_BUNDLE.
# Run by ctest: cmake -DUPDATER=<executable> -DGUARD=<executable or empty> -DSOURCE_DIR=... -DBUILD_DIR=... -DGENERATOR=...
#                     -DCXX_COMPILER=... -DQT_MAJOR=5|6 -P bundle.cmake

cmake_minimum_required(VERSION 3.16)
include(${CMAKE_CURRENT_LIST_DIR}/functions.cmake)
begin(${BUILD_DIR}/tests/bundle)
set(app "${work}/Some Editor.app")
file(WRITE "${app}/Contents/MacOS/Some Editor" "executable")

# A build directory with that option; the program in it is the one that is built already.
configure(0 ${SOURCE_DIR} ${work}/build
  -DBUILD_TESTING=OFF "-DUPDATER_INSTALL_INTO_BUNDLE=${app}")
# Nothing is installed into a directory that is no bundle.
file(WRITE ${work}/None.app/file "")
configure(1 ${SOURCE_DIR} ${work}/none
  -DBUILD_TESTING=OFF "-DUPDATER_INSTALL_INTO_BUNDLE=${work}/None.app")
expect_output("there is no[ \n]+[^\n]*None.app/Contents/MacOS")
if(EXISTS ${work}/none/cmake_install.cmake)
  message(FATAL_ERROR "Without a bundle there is something to install")
endif()
# A path relative to the directory where cmake runs.
run(0 ${CMAKE_COMMAND} -E chdir ${work}
  ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${work}/build "-DUPDATER_INSTALL_INTO_BUNDLE=Some Editor.app")
file(COPY ${UPDATER} ${GUARD} DESTINATION ${work}/build)
run(0 ${CMAKE_COMMAND} --install ${work}/build --prefix ${work}/prefix)

set(guard "")
if(GUARD)
  set(guard Contents/MacOS/updater-guard)
endif()
expect_files("${app}" "Contents/MacOS/Some Editor" Contents/MacOS/updater ${guard})
expect_files(${work}/prefix)
expect_text("${app}/Contents/MacOS/Some Editor" "executable")
# Without a mode it ends with 1.
run(1 ${offscreen} "${app}/Contents/MacOS/updater")
end()
