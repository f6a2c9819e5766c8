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
