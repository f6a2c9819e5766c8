// Path rules that publisher and updater share. Both "/" and "\" separate, on every platform.
//
//   paths::withSeparator("/opt/editor");                // "/opt/editor/"
//   paths::besideVersionFile("http://host/i", "a.txt"); // "http://host/a.txt"
#ifndef MANIFEST_PATHS_H
#define MANIFEST_PATHS_H

#include <QDir>
#include <QFileInfoList>
#include <QRegularExpression>
#include <QString>

#include <optional>

namespace paths {

/// True when @p path ends with "/" or with "\".
bool endsWithSeparator(const QString& path);

/// Returns @p path ready for a name to be appended: with the platform's separator at its end,
/// unless it ends with a separator already. An empty path becomes the separator alone.
QString withSeparator(const QString& path);

/// Returns @p path without the separators at its end; nothing may be left of it.
QString withoutSeparator(const QString& path);

/// Returns the position of the last separator in @p path, of either kind; -1 when there is none.
int lastSeparator(const QString& path);

/// Returns the part of @p path before its last separator, or nothing when it has none. For a name
/// at the root that part is empty.
std::optional<QString> directoryPart(const QString& path);

/// True when the directory @p path is the directory @p top or is below it, ignoring letter case. A
/// separator at the end does not matter. Nothing is inside the root or inside an empty path.
bool isInside(const QString& path, const QString& top);

/// Returns the URL of the file @p name of the release whose version file is at @p versionFileUrl:
/// the files are beside the version file. Nothing is escaped. A URL without a "/" gives the bare
/// name.
QString besideVersionFile(const QString& versionFileUrl, const QString& name);

/// Returns an expression for whole paths, in which "*" of @p pattern is any text, "/" included.
/// (With Qt's own wildcards that depends on the version.)
QRegularExpression wildcard(const QString& pattern);

/// Lists everything in @p dir that a release can have, hidden entries included, in the order of the
/// version file. Links are listed as what they lead to.
QFileInfoList releaseEntries(const QDir& dir);

} // namespace paths

#endif // MANIFEST_PATHS_H
