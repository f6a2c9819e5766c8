# Configures the project without options where only a compiler, CMake and Qt are found, and looks for
# the three things that it then makes.
# Run by ctest: cmake -DSOURCE_DIR=... -DBUILD_DIR=... -DGENERATOR=... -DMAKE_PROGRAM=...
#                     -DCXX_COMPILER=... -DQT_MAJOR=5|6 -DNETTLE=<library or empty> -P plain.cmake

cmake_minimum_required(VERSION 3.16)
include(${CMAKE_CURRENT_LIST_DIR}/functions.cmake)
begin(${BUILD_DIR}/tests/plain)

# No tools but those that a compiler calls.
file(MAKE_DIRECTORY ${work}/bin)
foreach(tool as ld ar ranlib nm)
  find_program(${tool}_found ${tool})
  file(CREATE_LINK ${${tool}_found} ${work}/bin/${tool} SYMBOLIC)
endforeach()
set(ENV{PATH} ${work}/bin)

configure(0 ${SOURCE_DIR} ${work}/build -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM})
if(NETTLE)
  expect_output("SHA-1: Nettle, [^\n]*nettle")
else()
  expect_output("SHA-1: Qt\n")
endif()
# A build that only says what it would do.
run(0 ${CMAKE_COMMAND} --build ${work}/build --target updater updater-release updater_host -- -n)

# Without Nettle, Qt does the work; who asks for Nettle is told when it is not there.
configure(0 ${SOURCE_DIR} ${work}/build -DUPDATER_NETTLE=OFF)
expect_output("SHA-1: Qt\n")
configure(1 ${SOURCE_DIR} ${work}/build -DUPDATER_NETTLE=ON -DUPDATER_NETTLE_LIBRARY=OFF)
expect_output("UPDATER_NETTLE is ON, and Nettle is not installed")
configure(1 ${SOURCE_DIR} ${work}/build -DUPDATER_NETTLE=ON
  -DUPDATER_NETTLE_LIBRARY=${work}/libnettle.a)
expect_output("UPDATER_NETTLE is ON, and Nettle is not installed")
end()
