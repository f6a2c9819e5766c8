# Makes a package of the build in BUILD_DIR with cpack, unpacks it into a directory of its own, looks
# at what is there and runs it.
# Run by ctest: cmake -DGENERATOR=TGZ|DEB -DBUILD_DIR=... -DBIN=<directory> -DMAN=<directory>
#                     -DDATA=<directory> -DVERSION=... -DQT=Qt5|Qt6 -P package.cmake

cmake_minimum_required(VERSION 3.16)
include(${CMAKE_CURRENT_LIST_DIR}/functions.cmake)
begin(${BUILD_DIR}/tests/package-${GENERATOR})
file(MAKE_DIRECTORY ${work}/unpacked)

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
  set(top usr)
else()
  set(name "updater-${VERSION}-[a-z]+-[a-z0-9_]+\\.tar\\.gz")
  string(REPLACE .tar.gz "" top "${packages}")
endif()
if(NOT packages MATCHES "^${name}$")
  message(FATAL_ERROR "Made: ${packages}")
endif()

if(GENERATOR STREQUAL "DEB")
  run(0 dpkg-deb -x ${package} ${work}/unpacked)
  run(0 dpkg-deb -f ${package})
  string(TOLOWER lib${QT}core qt_core)
  foreach(line
      "Package: updater\n"
      "Version: ${VERSION}\n"
      "Architecture: [a-z0-9-]+\n"
      "Maintainer: The updater developers <updater@example.org>\n"
      "Depends: [^\n]*${qt_core}"
      "Description: Self-updater of a desktop application\n +[A-Z]")
    expect_output("(^|\n)${line}")
  endforeach()
else()
  run(0 ${CMAKE_COMMAND} -E chdir ${work}/unpacked ${CMAKE_COMMAND} -E tar xzf ${package})
endif()
list(TRANSFORM installed_files PREPEND ${top}/)
expect_files(${work}/unpacked ${installed_files})

# The program in the package describes a release; without a mode it ends with 1.
set(bin ${work}/unpacked/${top}/${BIN})
set(file ${work}/release/Contents/about.txt)
file(WRITE ${file} "Editor\n")
file(SHA1 ${file} sha1)
run(0 ${offscreen} ${bin}/updater -b -n Editor -d ${work}/release -v 2.0)
expect_text(${work}/release/index.txt "<Editor>
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
run(1 ${offscreen} ${bin}/updater)
run(0 ${bin}/updater-release --version)
run(1 ${bin}/updater-release lint --name Editor ${work}/release)
expect_output("index.txt: version file of an earlier build")
end()
