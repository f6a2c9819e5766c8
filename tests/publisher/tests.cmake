# The publisher's tool, the script and the web server's configuration.

foreach(command lint diff verify)
  updater_test(release_${command})
  target_link_libraries(tst_release_${command} PRIVATE updater_release_parts)
  target_compile_definitions(tst_release_${command} PRIVATE
    UPDATER_RELEASE_EXECUTABLE="$<TARGET_FILE:updater-release>")
  add_dependencies(tst_release_${command} updater-release)
endforeach()
target_compile_definitions(tst_release_lint PRIVATE DOCS_DIR="${PROJECT_SOURCE_DIR}/docs")

updater_test(publish)
target_compile_definitions(tst_publish PRIVATE
  PUBLISH_DIR="${PROJECT_SOURCE_DIR}/publisher"
  PUBLISHING_GUIDE="${PROJECT_SOURCE_DIR}/docs/publishing.md"
  TROUBLESHOOTING_PAGE="${PROJECT_SOURCE_DIR}/docs/troubleshooting.md"
  UPDATER_EXECUTABLE="$<TARGET_FILE:updater>"
  UPDATER_RELEASE_EXECUTABLE="$<TARGET_FILE:updater-release>")
add_dependencies(tst_publish updater-release)
