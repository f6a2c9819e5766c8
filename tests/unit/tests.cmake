# A program for each source of app, manifest and updater; some have two.

foreach(source
    Changelog
    Digest
    DownloadFailures
    Downloads
    Installation
    LargeRelease
    ManifestDifferential
    ManifestReader
    ManifestWriter
    Options
    Paths
    Printable
    Progress
    QtVersions
    Report
    Selection
    SelfCopy
    TreeScan
    Updater
    VersionCheck
    VersionFile)
  updater_test(${source})
endforeach()

# In linear time it takes seconds, in quadratic time minutes.
limit_time(LargeRelease 150)

if(UPDATER_NETTLE AND UPDATER_NETTLE_LIBRARY MATCHES "nettle\\.so")
  set(hashed_by libnettle)
else()
  set(hashed_by Qt)
endif()
target_compile_definitions(tst_Digest PRIVATE HASHED_BY="${hashed_by}")

# The same with Qt's SHA-1, whatever the build has found.
updater_test(DigestOfQt SOURCE tst_Digest.cpp)
target_sources(tst_DigestOfQt PRIVATE ${PROJECT_SOURCE_DIR}/manifest/Digest.cpp)
set(hashed_by Qt)
if(UPDATER_SANITIZE) # Then the library is loaded, whether or not it is used.
  set(hashed_by "")
endif()
target_compile_definitions(tst_DigestOfQt PRIVATE UPDATER_SHA1_OF_QT HASHED_BY="${hashed_by}")
