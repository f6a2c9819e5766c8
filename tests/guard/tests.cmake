# updater-guard, where it is built.

if(NOT TARGET updater_guard_parts)
  return()
endif()

foreach(name
    GuardOptions
    Names
    Signature
    Versions
    guard
    guardclone
    guarddownloads
    guardfetch
    guardkilled
    guardwindow
    relay)
  if(name STREQUAL "guardwindow" AND UPDATER_XVFB_RUN)
    updater_test(${name} UNDER ${on_x_server})
  else()
    updater_test(${name})
  endif()
  target_link_libraries(tst_${name} PRIVATE updater_guard_parts)
  target_compile_definitions(tst_${name} PRIVATE
    GUARD_EXECUTABLE="$<TARGET_FILE:updater-guard>"
    PROJECT_VERSION="${PROJECT_VERSION}"
    UPDATER_EXECUTABLE="$<TARGET_FILE:updater>")
  add_dependencies(tst_${name} updater-guard)
endforeach()
# Whole stacks: otherwise a leak of the X11 plugin looks like one of ours.
set_tests_properties(guardwindow PROPERTIES
  ENVIRONMENT "${lsan_options};ASAN_OPTIONS=fast_unwind_on_malloc=0")
# Its memory is measured: freed blocks are not to be kept.
set_tests_properties(relay PROPERTIES
  ENVIRONMENT "${lsan_options};ASAN_OPTIONS=quarantine_size_mb=1")
