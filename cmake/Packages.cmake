# What "cpack" makes: a tarball and, where the tools for it are, a Debian package. Both hold what
# "cmake --install" installs.

set(CPACK_PACKAGE_NAME updater)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
"Describes a release of an application for its publisher, and checks for,
downloads, verifies and installs it for its user. A release script or the
running application starts it; it does nothing on its own initiative.")
set(CPACK_PACKAGE_VENDOR "The updater developers")
set(CPACK_PACKAGE_CONTACT "The updater developers <updater@example.org>")
set(CPACK_STRIP_FILES ON)

string(TOLOWER "updater-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR}"
  CPACK_PACKAGE_FILE_NAME)
set(CPACK_GENERATOR TGZ)

# dpkg-shlibdeps, which uses "file", finds out which libraries' packages are needed.
find_program(UPDATER_DPKG_DEB dpkg-deb)
find_program(UPDATER_DPKG_SHLIBDEPS dpkg-shlibdeps)
find_program(UPDATER_FILE_PROGRAM file)
mark_as_advanced(UPDATER_DPKG_DEB UPDATER_DPKG_SHLIBDEPS UPDATER_FILE_PROGRAM)
if(UPDATER_DPKG_DEB AND UPDATER_DPKG_SHLIBDEPS AND UPDATER_FILE_PROGRAM)
  list(APPEND CPACK_GENERATOR DEB)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT) # NAME_VERSION_ARCHITECTURE.deb
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

include(CPack)
