# Makes a package of the build in BUILD_DIR with cpack, unpacks it into a directory of its own, looks
# at what is there and runs it.
# Run by ctest: cmake -DGENERATOR=TGZ|DEB -DBUILD_DIR=... -DBIN=<directory> -DMAN=<directory>
#                     -DDATA=<directory> -DVERSION=... -DQT=Qt5|Qt6 -P package.cmake

cmake_minimum_required(VERSION 3.16)
unset(ENV{DESTDIR})
set(work ${BUILD_DIR}/tests/package-${GENERATOR})
file(REMOVE_RECURSE ${work})
file(MAKE_DIRECTORY ${work}/unpacked ${work}/tmp)

# run(STATUS COMMAND...): ends the test when the command ends with another status.
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

if(GENERATOR STREQUAL "DEB")
  foreach(program dpkg-deb dpkg-shlibdeps file)
    find_program(${program}_found ${program})
    if(NOT ${program}_found)
      message("SKIP: ${program} is not installed")
      return()
    endif()
  endforeach()
endif()

run(0 ${CMAKE_COMMAND} -E chdir ${work}
  ${CPACK} -G ${GENERATOR} --config ${BUILD_DIR}/CPackConfig.cmake -B ${work}/made)
file(GLOB packages RELATIVE ${work}/made ${work}/made/updater*)
set(package ${work}/made/${packages})
if(GENERATOR STREQUAL "DEB")
  set(name "updater_${VERSION}_[a-z0-9-]+\\.deb")
  set(top ${work}/unpacked/usr)
else()
  set(name "updater-${VERSION}-[a-z]+-[a-z0-9_]+\\.tar\\.gz")
  string(REPLACE .tar.gz "" top "${work}/unpacked/${packages}")
endif()
if(NOT packages MATCHES "^${name}$")
  message(FATAL_ERROR "Made: ${packages}")
endif()

if(GENERATOR STREQUAL "DEB")
  run(0 dpkg-deb -x ${package} ${work}/unpacked)
  run(0 dpkg-deb -f ${package})
  string(TOLOWER lib${QT}core toolkit)
  foreach(line
      "Package: updater\n"
      "Version: ${VERSION}\n"
      "Architecture: [a-z0-9-]+\n"
      "Maintainer: The updater developers <updater@example.org>\n"
      "Depends: [^\n]*${toolkit}"
      "Description: Self-updater of a desktop application\n +[A-Z]")
    if(NOT output MATCHES "(^|\n)${line}")
      message(FATAL_ERROR "No \"${line}\" in:\n${output}")
    endif()
  endforeach()
else()
  run(0 ${CMAKE_COMMAND} -E chdir ${work}/unpacked ${CMAKE_COMMAND} -E tar xzf ${package})
endif()
file(GLOB_RECURSE unpacked RELATIVE ${top} ${work}/unpacked/*)
set(expected ${BIN}/updater ${BIN}/updater-release
  ${MAN}/man1/updater-release.1 ${MAN}/man1/updater.1 ${DATA}/doc/updater/copyright
  ${DATA}/updater/publish/nginx.conf ${DATA}/updater/publish/publish.sh)
list(SORT expected)
if(NOT unpacked STREQUAL expected)
  message(FATAL_ERROR "Unpacked: ${unpacked}")
endif()

# The program in the package describes a release; without a mode it ends with 1.
set(updater ${CMAKE_COMMAND} -E env
  QT_QPA_PLATFORM=offscreen TMPDIR=${work}/tmp XDG_RUNTIME_DIR=${work}/tmp ${top}/${BIN}/updater)
set(file ${work}/release/Contents/about.txt)
file(WRITE ${file} "Editor\n")
file(SHA1 ${file} sha1)
run(0 ${updater} -b -n Editor -d ${work}/release -v 2.0)
file(READ ${work}/release/index.txt described)
set(expected "<Editor>
\t<version>2.0</version>
\t<required>false</required>
\t<changelog></changelog>
\t<file>
\t\t<name>Contents/about.txt</name>
\t\t<sha1>${sha1}</sha1>
\t\t<size>7</size>
\t</file>
</Editor>
")
if(NOT described STREQUAL expected)
  message(FATAL_ERROR "Described:\n${described}")
endif()
run(1 ${updater})
run(0 ${top}/${BIN}/updater-release --version)
run(1 ${top}/${BIN}/updater-release lint --name Editor ${work}/release)
if(NOT output MATCHES "index.txt: version file of an earlier build")
  message(FATAL_ERROR "Linted:\n${output}")
endif()
file(REMOVE_RECURSE ${work})
