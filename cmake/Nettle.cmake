# Which library does SHA-1 (UPDATER_NETTLE). To link Nettle statically, give the archive:
# -DUPDATER_NETTLE=ON -DUPDATER_NETTLE_LIBRARY=/path/to/libnettle.a
# Nettle's second library, hogweed, does Ed25519 for updater-guard.

if(UPDATER_NETTLE)
  find_path(UPDATER_NETTLE_INCLUDE_DIR nettle/sha1.h)
  find_library(UPDATER_NETTLE_LIBRARY nettle)
  find_library(UPDATER_HOGWEED_LIBRARY hogweed)
  mark_as_advanced(UPDATER_NETTLE_INCLUDE_DIR UPDATER_NETTLE_LIBRARY UPDATER_HOGWEED_LIBRARY)
endif()
# Given paths may be wrong.
if(UPDATER_NETTLE AND EXISTS "${UPDATER_NETTLE_INCLUDE_DIR}/nettle/sha1.h"
    AND EXISTS "${UPDATER_NETTLE_LIBRARY}")
  set(updater_has_nettle TRUE)
  message(STATUS "SHA-1: Nettle, ${UPDATER_NETTLE_LIBRARY}")
elseif(UPDATER_NETTLE AND NOT UPDATER_NETTLE STREQUAL "AUTO")
  message(FATAL_ERROR "UPDATER_NETTLE is ON, and Nettle is not installed (on Debian: nettle-dev)")
else()
  set(updater_has_nettle FALSE)
  message(STATUS "SHA-1: Qt")
endif()

# Makes manifest/Digest.cpp in TARGET use Nettle, or Qt where Nettle is not wanted or not there.
function(updater_use_nettle target)
  if(updater_has_nettle)
    target_include_directories(${target} SYSTEM PRIVATE ${UPDATER_NETTLE_INCLUDE_DIR})
    target_link_libraries(${target} PRIVATE ${UPDATER_NETTLE_LIBRARY})
  else()
    target_compile_definitions(${target} PRIVATE UPDATER_SHA1_OF_QT)
  endif()
endfunction()
