# What "cmake --install" and "cpack" take: the updater and its guard, the publisher's tool and what goes
# with it, and the man pages; or, with UPDATER_INSTALL_INTO_BUNDLE, only the updater and its guard.
# (host/CMakeLists.txt installs the host kit.)

set(bundled_programs updater)
set(man_pages docs/updater.1 docs/updater-release.1)
if(TARGET updater-guard)
  list(APPEND bundled_programs updater-guard)
  list(APPEND man_pages docs/updater-guard.1)
endif()

if(UPDATER_INSTALL_INTO_BUNDLE)
  set(bundle_programs ${UPDATER_INSTALL_INTO_BUNDLE}/Contents/MacOS)
  if(NOT IS_DIRECTORY "${bundle_programs}")
    message(FATAL_ERROR "UPDATER_INSTALL_INTO_BUNDLE: there is no ${bundle_programs}")
  endif()
  if(APPLE)
    # Where the application's own libraries are (docs/integrating.md).
    set_target_properties(${bundled_programs} PROPERTIES
      INSTALL_RPATH @executable_path/../Frameworks)
  endif()
  install(TARGETS ${bundled_programs} RUNTIME DESTINATION ${bundle_programs})
else()
  install(TARGETS ${bundled_programs} updater-release RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES ${man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES docs/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/updater)
  set(publish_dir ${CMAKE_INSTALL_DATADIR}/updater/publish)
  install(PROGRAMS publisher/publish.sh DESTINATION ${publish_dir})
  install(FILES publisher/nginx.conf DESTINATION ${publish_dir})
  if(updater_is_top_level) # A parent has packages of its own, or none.
    include(cmake/Packages.cmake)
  endif()
endif()
