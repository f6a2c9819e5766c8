// Finds files in a release tree that would not survive the version file, the web server or the
// installation.
//
//   publisher::ConsoleOutput output;
//   publisher::lint("release", "Editor", {"Contents/MacOS/updater"}, output);
//   return output.findings() == 0 ? 0 : 1;
#ifndef PUBLISHER_LINT_H
#define PUBLISHER_LINT_H

#include <QStringList>

namespace publisher {

class Output;

/// Checks the release tree @p dir. Nothing is written, and links are not followed.
///
/// @param program  the program's name; if empty, any file in Contents/MacOS counts as the program
/// @param accepted patterns of paths whose findings do not count: paths from the top, or @p dir for
///                 findings about the whole tree; "*" is any text
void lint(const QString& dir, const QString& program, const QStringList& accepted, Output& output);

} // namespace publisher

#endif // PUBLISHER_LINT_H
