# The updater as a whole: publisher's side, user's side, network.

foreach(name main buildmode update tls http2 routes)
  updater_test(${name})
endforeach()

# main() before any application object.
updater_test(entry)
target_sources(tst_entry PRIVATE ${PROJECT_SOURCE_DIR}/app/main.cpp)
set_source_files_properties(${PROJECT_SOURCE_DIR}/app/main.cpp
  PROPERTIES COMPILE_DEFINITIONS main=updater_main SKIP_PRECOMPILE_HEADERS ON)

# What it touches at all, reported by the system.
updater_test(reach)
target_compile_definitions(tst_reach PRIVATE UPDATER_EXECUTABLE="$<TARGET_FILE:updater>")

# A window that a person would see, where there is an X server to be had.
find_program(UPDATER_XVFB_RUN xvfb-run)
if(UPDATER_XVFB_RUN)
  # Otherwise it starts anew when its last client has gone, and loses one that comes at this moment.
  set(on_x_server ${UPDATER_XVFB_RUN} -a -s "-screen 0 1280x1024x24 -noreset")
  updater_test(window UNDER ${on_x_server})
else()
  updater_test(window)
endif()
# Whole stacks: otherwise a leak of the X11 plugin or of libproxy looks like one of ours.
set_tests_properties(window routes PROPERTIES
  ENVIRONMENT "${lsan_options};ASAN_OPTIONS=fast_unwind_on_malloc=0")
