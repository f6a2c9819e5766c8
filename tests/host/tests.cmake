# The host kit and the example application.

updater_test(UpdateCheck)
target_link_libraries(tst_UpdateCheck PRIVATE updater_host ${CMAKE_DL_LIBS})
target_compile_definitions(tst_UpdateCheck PRIVATE
  SHM_HOST_EXECUTABLE="$<TARGET_FILE:shm_host>"
  UPDATER_EXECUTABLE="$<TARGET_FILE:updater>")

updater_test(hostkit)
set(sanitizer_flags "")
if(UPDATER_SANITIZE)
  set(sanitizer_flags -fsanitize=${UPDATER_SANITIZE})
endif()
target_compile_definitions(tst_hostkit PRIVATE
  BUILD_DIR="${CMAKE_BINARY_DIR}"
  BUILD_TYPE="${CMAKE_BUILD_TYPE}"
  CMAKE_EXECUTABLE="${CMAKE_COMMAND}"
  CXX_COMPILER="${CMAKE_CXX_COMPILER}"
  CXX_FLAGS="${sanitizer_flags}"
  GENERATOR="${CMAKE_GENERATOR}"
  LIBRARY_DIR="${CMAKE_INSTALL_LIBDIR}"
  SOURCE_DIR="${PROJECT_SOURCE_DIR}"
  UPDATER_EXECUTABLE="$<TARGET_FILE:updater>")
add_dependencies(tst_hostkit updater_host)

if(TARGET editor)
  updater_test(editor)
  target_link_libraries(tst_editor PRIVATE editor_parts)
  set(guard "")
  if(TARGET updater-guard)
    set(guard $<TARGET_FILE:updater-guard>)
    add_dependencies(tst_editor updater-guard)
  endif()
  target_compile_definitions(tst_editor PRIVATE
    EDITOR_EXECUTABLE="$<TARGET_FILE:editor>"
    GUARD_EXECUTABLE="${guard}"
    UPDATER_EXECUTABLE="$<TARGET_FILE:updater>")
  add_dependencies(tst_editor editor)
endif()
