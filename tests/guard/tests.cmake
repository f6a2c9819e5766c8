# updater-guard, which makes an update atomic.

foreach(name
    guardfetch
    guarddownloads
    relay)
  updater_test(${name})
  target_link_libraries(tst_${name} PRIVATE updater_guard_parts)
endforeach()
