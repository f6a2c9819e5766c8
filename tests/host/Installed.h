// An installation after an update.
#ifndef TESTS_HOST_INSTALLED_H
#define TESTS_HOST_INSTALLED_H

#include "tests/support/Release.h"

/// Returns what is different in @p app from the release in @p releaseDir, in a line for each file.
inline QStringList differencesFromRelease(const QString& app, const QString& releaseDir)
{
    Tree expected = release::read(releaseDir);
    expected.remove("index.txt");
    return release::differences(release::read(app), expected);
}

#endif // TESTS_HOST_INSTALLED_H
