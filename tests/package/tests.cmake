# What "cmake --install" and "cpack" make, and the project inside another one.

# What "cmake --install" leaves.
add_test(NAME install
  COMMAND ${CMAKE_COMMAND}
    -DBUILD_DIR=${CMAKE_BINARY_DIR} -DBIN=${CMAKE_INSTALL_BINDIR} -DMAN=${CMAKE_INSTALL_MANDIR}
    -DDATA=${CMAKE_INSTALL_DATADIR}
    -P ${CMAKE_CURRENT_LIST_DIR}/install.cmake)
put_into_drawer(install)
limit_time(install 60)

# What "cpack" makes.
foreach(generator TGZ DEB)
  add_test(NAME package-${generator}
    COMMAND ${CMAKE_COMMAND}
      -DGENERATOR=${generator} -DCPACK=${CMAKE_CPACK_COMMAND} -DBUILD_DIR=${CMAKE_BINARY_DIR}
      -DBIN=${CMAKE_INSTALL_BINDIR} -DMAN=${CMAKE_INSTALL_MANDIR} -DDATA=${CMAKE_INSTALL_DATADIR}
      -DVERSION=${PROJECT_VERSION} -DQT=${QT} -P ${CMAKE_CURRENT_LIST_DIR}/package.cmake)
  limit_time(package-${generator} 180)
  put_into_drawer(package-${generator})
  set_tests_properties(package-${generator} PROPERTIES SKIP_REGULAR_EXPRESSION "^SKIP")
endforeach()

# What is installed into an application bundle.
add_test(NAME bundle
  COMMAND ${CMAKE_COMMAND}
    -DUPDATER=$<TARGET_FILE:updater> -DSOURCE_DIR=${PROJECT_SOURCE_DIR}
    -DBUILD_DIR=${CMAKE_BINARY_DIR} -DGENERATOR=${CMAKE_GENERATOR}
    -DCXX_COMPILER=${CMAKE_CXX_COMPILER} -DQT_MAJOR=${QT_VERSION_MAJOR}
    -P ${CMAKE_CURRENT_LIST_DIR}/bundle.cmake)
limit_time(bundle 120)
put_into_drawer(bundle)

# The whole project as a part of another one.
add_test(NAME subproject
  COMMAND ${CMAKE_COMMAND}
    -DSOURCE_DIR=${PROJECT_SOURCE_DIR} -DWORK=${CMAKE_CURRENT_BINARY_DIR}/subproject-work
    -DGENERATOR=${CMAKE_GENERATOR} -DCXX_COMPILER=${CMAKE_CXX_COMPILER}
    -DQT_MAJOR=${QT_VERSION_MAJOR} -P ${CMAKE_CURRENT_LIST_DIR}/subproject.cmake)
put_into_drawer(subproject)
limit_time(subproject 180)
