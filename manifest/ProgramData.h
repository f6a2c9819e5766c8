// The records that hold a manifest in memory. A manifest describes one release of one program;
// its text form is read and written by manifest/ManifestText.h.
#ifndef MANIFEST_PROGRAMDATA_H
#define MANIFEST_PROGRAMDATA_H

#include <QString>
#include <QVector>

/// One file of a release.
struct ProgramFile
{
    QString name;     ///< Path relative to the program's base directory, "/" between components.
    QString sha1;     ///< SHA-1 of the contents, 40 hexadecimal digits; compared ignoring case.
    quint64 size = 0; ///< Size in bytes.
};

/// One release of a program: what the version file says.
struct ProgramData
{
    QString name;               ///< Program name; also the name of the record's root element.
    QString version;            ///< Published version, compared as text, never parsed.
    bool required = false;      ///< True when the publisher marks the update as required.
    QString changelog;          ///< Changelog payload: base64 text, or empty.
    QVector<ProgramFile> files; ///< The program's files, in the order the builder listed them.
};

#endif // MANIFEST_PROGRAMDATA_H
