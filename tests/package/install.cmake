# Installs the build in BUILD_DIR below a directory of its own and looks at what is there.
# Run by ctest: cmake -DBUILD_DIR=... -DBIN=<directory> -DMAN=<directory> -DGUARD=...
#                     -DDATA=<directory> -P install.cmake

cmake_minimum_required(VERSION 3.16)
include(${CMAKE_CURRENT_LIST_DIR}/functions.cmake)
begin(${BUILD_DIR}/tests/install)
set(prefix ${work}/prefix)

run(0 ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
expect_files(${prefix} ${installed_files})

# The installed program runs: without a mode it ends with 1.
run(1 ${offscreen} ${prefix}/${BIN}/updater)
# The publisher's tool runs on servers, and the guard has no windows: no library with windows.
set(programs updater-release)
if(GUARD)
  list(APPEND programs updater-guard)
endif()
find_program(READELF readelf)
foreach(program ${programs})
  run(0 ${prefix}/${BIN}/${program} --version)
  if(READELF)
    run(0 ${READELF} -d ${prefix}/${BIN}/${program})
    expect_output("NEEDED[^\n]*Qt[0-9]Network")
    if(output MATCHES "NEEDED[^\n]*(Widgets|Gui)")
      message(FATAL_ERROR "${program} needs:\n${output}")
    endif()
  endif()
endforeach()
file(READ ${prefix}/${DATA}/doc/updater/copyright output)
expect_output("No licence has been chosen yet")
# Without arguments the publisher's script ends with 2.
find_program(BASH bash)
if(BASH)
  run(2 ${prefix}/${DATA}/updater/publish/publish.sh)
endif()
end()
