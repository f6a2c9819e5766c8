# Configures a project that contains this one, builds its program, which uses the host kit, and
# checks that it gets nothing else of this project.
# Run by ctest: cmake -DSOURCE_DIR=... -DWORK=<directory> -DGENERATOR=... -DCXX_COMPILER=...
#                     -DQT_MAJOR=5|6 -P subproject.cmake

cmake_minimum_required(VERSION 3.16)
include(${CMAKE_CURRENT_LIST_DIR}/functions.cmake)
begin(${WORK})

configure(0 ${CMAKE_CURRENT_LIST_DIR}/subproject ${work}/build -DUPDATER_SOURCE=${SOURCE_DIR})
run(0 ${CMAKE_COMMAND} --build ${work}/build --target viewer)

# Only the parent's own test, files and packages.
run(0 ${CMAKE_CTEST_COMMAND} --test-dir ${work}/build -N)
expect_output("Total Tests: 1\n")
run(0 ${CMAKE_COMMAND} --install ${work}/build --prefix ${work}/prefix)
expect_files(${work}/prefix bin/viewer)
if(EXISTS ${work}/build/CPackConfig.cmake)
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
end()
