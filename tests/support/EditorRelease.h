// Releases of Editor, the program of the tests, as they are described in a version file.
#ifndef TESTS_SUPPORT_EDITORRELEASE_H
#define TESTS_SUPPORT_EDITORRELEASE_H

#include "tests/support/ReleaseTree.h"

/// @param changelog Its payload, in Base64.
inline ProgramData editorRelease(const QString& version, const QVector<ProgramFile>& files = {},
                                 bool required = false, const QString& changelog = QString())
{
    ProgramData data;
    data.name = QStringLiteral("Editor");
    data.version = version;
    data.required = required;
    data.changelog = changelog;
    data.files = files;
    return data;
}

/// The version file of editorRelease() with the same arguments.
inline QByteArray editorVersionFile(const QString& version, const QVector<ProgramFile>& files = {},
                                    bool required = false, const QString& changelog = QString())
{
    return tree::versionFile(editorRelease(version, files, required, changelog)).toUtf8();
}

#endif // TESTS_SUPPORT_EDITORRELEASE_H
