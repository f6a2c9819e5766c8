# What "cmake --install" and "cpack" make, and the project inside another one.

# package_test(NAME SCRIPT SECONDS OPTION...): SCRIPT.cmake of the drawer, run by ctest as NAME.
function(package_test name script seconds)
  add_test(NAME ${name}
    COMMAND ${CMAKE_COMMAND} ${ARGN} -P ${PROJECT_SOURCE_DIR}/tests/package/${script}.cmake)
  put_into_drawer(${name})
  limit_time(${name} ${seconds})
endfunction()

set(guard "")
if(TARGET updater-guard)
  set(guard $<TARGET_FILE:updater-guard>)
endif()
set(installation_options
  -DBUILD_DIR=${CMAKE_BINARY_DIR} -DBIN=${CMAKE_INSTALL_BINDIR} -DMAN=${CMAKE_INSTALL_MANDIR}
  -DDATA=${CMAKE_INSTALL_DATADIR} -DGUARD=${guard})
set(project_options
  -DSOURCE_DIR=${PROJECT_SOURCE_DIR} -DGENERATOR=${CMAKE_GENERATOR}
  -DCXX_COMPILER=${CMAKE_CXX_COMPILER} -DQT_MAJOR=${QT_VERSION_MAJOR})

# What "cmake --install" leaves.
package_test(install install 60 ${installation_options})

# What "cpack" makes.
foreach(generator TGZ DEB)
  package_test(package-${generator} package 180 ${installation_options}
    -DGENERATOR=${generator} -DCPACK=${CMAKE_CPACK_COMMAND} -DVERSION=${PROJECT_VERSION} -DQT=${QT})
  set_tests_properties(package-${generator} PROPERTIES SKIP_REGULAR_EXPRESSION "^SKIP")
endforeach()

# What is installed into an application bundle.
package_test(bundle bundle 120 ${project_options}
  -DUPDATER=$<TARGET_FILE:updater> -DGUARD=${guard} -DBUILD_DIR=${CMAKE_BINARY_DIR})

# Without options and tools.
set(nettle "")
if(UPDATER_NETTLE AND UPDATER_NETTLE_LIBRARY)
  set(nettle ${UPDATER_NETTLE_LIBRARY})
endif()
package_test(plain plain 60 ${project_options} -DNETTLE=${nettle}
  -DBUILD_DIR=${CMAKE_BINARY_DIR} -DMAKE_PROGRAM=${CMAKE_MAKE_PROGRAM})

# The whole project as a part of another one.
package_test(subproject subproject 180 ${project_options}
  -DWORK=${CMAKE_CURRENT_BINARY_DIR}/subproject-work)
