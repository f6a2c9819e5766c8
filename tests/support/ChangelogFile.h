// The file through which the host gets the changelog of a new version.
#ifndef TESTS_SUPPORT_CHANGELOGFILE_H
#define TESTS_SUPPORT_CHANGELOGFILE_H

#include <QDir>
#include <QString>

/// The name of the file for the changelog of @p version.
inline QString changelogFileName(const QString& version)
{
    return "velmora_cl_" + version + ".dat";
}

/// Its path in the test's own temporary directory.
inline QString changelogFile(const QString& version)
{
    return QDir::temp().filePath(changelogFileName(version));
}

#endif // TESTS_SUPPORT_CHANGELOGFILE_H
