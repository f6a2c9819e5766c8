# updater-guard, which makes an update atomic.
if(NOT TARGET updater_guard_parts)
  return()
endif()
foreach(name guardclone)
  updater_test(${name})
  target_link_libraries(tst_${name} PRIVATE updater_guard_parts)
endforeach()
