# updater-guard, where it is built.

if(NOT TARGET updater_guard_parts)
  return()
endif()

foreach(name GuardOptions Names Signature Versions guard guardclone guardkilled)
  updater_test(${name})
  target_link_libraries(tst_${name} PRIVATE updater_guard_parts)
  target_compile_definitions(tst_${name} PRIVATE
    GUARD_EXECUTABLE="$<TARGET_FILE:updater-guard>"
    PROJECT_VERSION="${PROJECT_VERSION}"
    UPDATER_EXECUTABLE="$<TARGET_FILE:updater>")
  add_dependencies(tst_${name} updater-guard)
endforeach()
