# updater-guard, where it is built.

if(NOT TARGET updater_guard_parts)
  return()
endif()

foreach(name Names Signature Versions)
  updater_test(${name})
  target_link_libraries(tst_${name} PRIVATE updater_guard_parts)
endforeach()
