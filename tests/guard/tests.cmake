# updater-guard, where it is built.

if(NOT TARGET updater_guard_parts)
  return()
endif()

foreach(name GuardOptions Names Signature Versions)
  updater_test(${name})
  target_link_libraries(tst_${name} PRIVATE updater_guard_parts)
endforeach()
target_compile_definitions(tst_GuardOptions PRIVATE PROJECT_VERSION="${PROJECT_VERSION}")
