// Releases of Editor, the program of the tests, as they are described in a version file.
#ifndef TESTS_SUPPORT_EDITORRELEASE_H
#define TESTS_SUPPORT_EDITORRELEASE_H

#include "manifest/ProgramData.h"

inline ProgramData editorRelease(const QString& version, const QVector<ProgramFile>& files = {})
{
    ProgramData data;
    data.name = QStringLiteral("Editor");
    data.version = version;
    data.files = files;
    return data;
}

#endif // TESTS_SUPPORT_EDITORRELEASE_H
