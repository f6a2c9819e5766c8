// The text form of a manifest: the contents of the version file "index.txt".
//
//   ProgramData release;
//   if (manifest::read(QStringLiteral("Editor"), text, release))
//       qInfo() << release.version << release.files.size();
//
//   QString text;
//   manifest::write(release, text); // "<Editor>\n\t<version>2.0</version>\n..."
//
// The text looks like XML and is not: no escapes, no attributes, no nesting (docs/version-file.md).
#ifndef MANIFEST_MANIFESTTEXT_H
#define MANIFEST_MANIFESTTEXT_H

#include "manifest/ProgramData.h"

#include <QByteArray>
#include <QString>

namespace manifest {

/// Returns the text of a version file whose bytes are @p bytes: one character per byte (Latin-1),
/// up to the first zero byte.
QString textFromBytes(const QByteArray& bytes);

/// Appends the record of @p data to @p text, after an empty line when @p text holds something
/// already. Name, version and changelog are trimmed; no value is escaped.
///
/// @return False, with @p text unchanged, when the trimmed name or the trimmed version is empty.
bool write(const ProgramData& data, QString& text);

/// Reads the first record of the program @p rootTag in @p xml into @p data, in time that grows
/// linearly with the text. Tags are found in any letter case.
///
/// Files are appended to those that @p data has, and a missing changelog leaves the one it has, so
/// pass an empty record. The list ends silently at the first incomplete entry; an entry whose size
/// is not a number is left out.
///
/// @param rootTag the program's name
/// @param xml     may be a field of @p data
/// @return False when there is no such record or it has no version. The name in @p data is set all
///         the same when there was a record with something in it.
bool read(const QString& rootTag, const QString& xml, ProgramData& data);

/// Returns the text between the first opening tag of the element @p tag in @p source and the first
/// closing tag after it, ignoring letter case; a null string when there is none.
///
/// @param remove cuts the element out of @p source; the text on both sides of it is trimmed and
///               joined with nothing between
/// @param found  receives whether the element was found; may be null
QString tagValue(const QString& tag, QString& source, bool remove, bool* found);

} // namespace manifest

#endif // MANIFEST_MANIFESTTEXT_H
