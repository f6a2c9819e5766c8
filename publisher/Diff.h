// Compares the version files of two releases: what an update from one to the other brings.
#ifndef PUBLISHER_DIFF_H
#define PUBLISHER_DIFF_H

#include <QString>

namespace publisher {

class Output;

/// Reports what a user of the release described in the file @p oldPath downloads when the one
/// described in @p newPath is published, and which files then stay on their machine.
///
/// @param program the program's name; empty to take that of the old release
void diff(const QString& oldPath, const QString& newPath, const QString& program, Output& output);

} // namespace publisher

#endif // PUBLISHER_DIFF_H
