# One program for each source of app, manifest and updater.

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

# It takes seconds in linear time, and minutes in quadratic time.
limit_time(LargeRelease 150)
