// Looks in a release tree for what the version file, the web server or an installation would not
// carry.
#ifndef PUBLISHER_LINT_H
#define PUBLISHER_LINT_H

#include <QStringList>

namespace publisher {

class Output;

/// Checks the release tree @p dir. Nothing is written, and links are not followed.
///
/// @param program the program's name; empty to take whatever lies in Contents/MacOS for the program
/// @param accepted findings about what matches one of these do not count: paths from the top, or
/// @p dir for those about the tree as a whole, with "*" for any text
void lint(const QString& dir, const QString& program, const QStringList& accepted, Output& output);

} // namespace publisher

#endif // PUBLISHER_LINT_H
