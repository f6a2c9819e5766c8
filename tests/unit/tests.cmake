# One program for each source of app, manifest and updater.

foreach(source
    Changelog
    Digest
    Downloads
    Installation
    ManifestDifferential
    ManifestText
    Options
    Paths
    QtVersions
    Report
    SelfCopy
    TreeScan
    Updater
    VersionCheck
    VersionFile
    selection)
  updater_test(${source})
endforeach()

# These take seconds in linear time, and minutes in quadratic time.
limit_time(ManifestText 90)
limit_time(selection 60)
