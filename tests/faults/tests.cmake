# The updater when the network, the disk, the host or the version file is against it.

foreach(name extremes filesystemfaults killed networkfaults sharedmemoryfaults soak)
  updater_test(${name})
endforeach()
target_compile_definitions(tst_filesystemfaults PRIVATE
  UPDATER_EXECUTABLE="$<TARGET_FILE:updater>")

# By far the longest: begin with it.
limit_time(networkfaults 900)
set_tests_properties(networkfaults PROPERTIES COST 1000)
