# Configures a project that contains this one, builds its program, which uses the host kit, and
# checks that it gets nothing else of this project.
# Run by ctest: cmake -DSOURCE_DIR=... -DWORK=<directory> -DGENERATOR=... -DCXX_COMPILER=...
#                     -DQT_MAJOR=5|6 -P subproject.cmake

cmake_minimum_required(VERSION 3.16)
include(${CMAKE_CURRENT_LIST_DIR}/functions.cmake)
begin(${WORK})

configure(0 ${CMAKE_CURRENT_LIST_DIR}/subproject ${work}/build -DUPDATER_SOURCE=${SOURCE_DIR})
run(0 ${CMAKE_COMMAND} --build ${work}/build --target viewer)
# It runs, and has no updater beside it.
run(1 ${work}/build/viewer 1.0 http://127.0.0.1:1/index.txt)
expect_output("no check: ")

# Only the parent's own test, files and packages.
run(0 ${CMAKE_COMMAND} -E chdir ${work}/build ${CMAKE_CTEST_COMMAND} -N)
expect_output("Total Tests: 1\n")
run(0 ${CMAKE_COMMAND} --install ${work}/build --prefix ${work}/prefix)
run(0 ${CMAKE_COMMAND} --install ${work}/build --prefix ${work}/prefix --component host-kit)
expect_files(${work}/prefix bin/viewer)

# A parent that asks for the updater's files gets them. Its packages are still its own business.
configure(0 ${CMAKE_CURRENT_LIST_DIR}/subproject ${work}/build -DUPDATER_INSTALL=ON)
file(READ ${work}/build/updater/cmake_install.cmake output)
expect_output("/updater-release\"")
if(EXISTS ${work}/build/CPackConfig.cmake OR EXISTS ${work}/build/updater/CPackConfig.cmake)
  message(FATAL_ERROR "The parent has packages that it did not ask for")
endif()

# Variables in the cache cannot be taken for the parent's.
file(GLOB_RECURSE files ${SOURCE_DIR}/cmake/*.cmake)
foreach(directory . host host/guard publisher examples/editor bench fuzz)
  list(APPEND files ${SOURCE_DIR}/${directory}/CMakeLists.txt)
endforeach()
set(names "")
foreach(file ${files})
  file(STRINGS ${file} lines REGEX "^ *(option\\(|find_(path|program|library)\\(|set\\(.* CACHE )")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^[^(]*\\(([A-Za-z0-9_{}$]+).*" "\\1" name "${line}")
    list(APPEND names "${name}")
  endforeach()
endforeach()
list(LENGTH names count)
if(count LESS 10)
  message(FATAL_ERROR "Only ${count} variables found: ${names}")
endif()
list(FILTER names EXCLUDE REGEX "^(UPDATER_[A-Z_]+|QT_MAJOR|QT|CMAKE_BUILD_TYPE)$")
if(names)
  message(FATAL_ERROR "Without the prefix: ${names}")
endif()
end()
