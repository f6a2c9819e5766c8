# What "cmake --install" and "cpack" take: the updater, the publisher's tool and what goes with it, and
# the man pages; or, with UPDATER_INSTALL_INTO_BUNDLE, the updater alone. The host kit is a component
# of its own, "cmake --install BUILD --component host-kit": users of the updater do not need it.

if(UPDATER_INSTALL_INTO_BUNDLE)
  set(bundle_programs ${UPDATER_INSTALL_INTO_BUNDLE}/Contents/MacOS)
  if(NOT IS_DIRECTORY "${bundle_programs}")
    message(FATAL_ERROR "UPDATER_INSTALL_INTO_BUNDLE: there is no ${bundle_programs}")
  endif()
  if(APPLE)
    # Where the application's own libraries are (docs/integrating.md).
    set_target_properties(updater PROPERTIES INSTALL_RPATH @executable_path/../Frameworks)
  endif()
  install(TARGETS updater RUNTIME DESTINATION ${bundle_programs})
else()
  install(TARGETS updater updater-release RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES docs/updater.1 docs/updater-release.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES docs/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/updater)
  set(publish_dir ${CMAKE_INSTALL_DATADIR}/updater/publish)
  install(PROGRAMS publisher/publish.sh DESTINATION ${publish_dir})
  install(FILES publisher/nginx.conf DESTINATION ${publish_dir})
  include(cmake/Packages.cmake)
endif()

# The name of the package says which Qt it was built with, so that two can be installed side by side.
include(CMakePackageConfigHelpers)
set(host_kit UpdaterHost-${QT})
set(host_kit_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${host_kit})
configure_package_config_file(host/UpdaterHostConfig.cmake.in ${host_kit}Config.cmake
  INSTALL_DESTINATION ${host_kit_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/${host_kit}ConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(TARGETS updater_host EXPORT ${host_kit}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT host-kit EXCLUDE_FROM_ALL)
install(DIRECTORY host/include/UpdaterHost
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT host-kit EXCLUDE_FROM_ALL)
install(EXPORT ${host_kit} NAMESPACE UpdaterHost:: FILE ${host_kit}Targets.cmake
  DESTINATION ${host_kit_dir} COMPONENT host-kit EXCLUDE_FROM_ALL)
install(
  FILES
    ${PROJECT_BINARY_DIR}/${host_kit}Config.cmake
    ${PROJECT_BINARY_DIR}/${host_kit}ConfigVersion.cmake
  DESTINATION ${host_kit_dir} COMPONENT host-kit EXCLUDE_FROM_ALL)
