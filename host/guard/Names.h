// What a published version file may name. It comes from outside, and the updater writes where it
// says.
//
//   const QString why = names::refusal(published, "/opt/editor");
//   if (!why.isEmpty())
//       ... // Nothing of it may be installed.
#ifndef HOST_GUARD_NAMES_H
#define HOST_GUARD_NAMES_H

#include "manifest/ProgramData.h"

#include <QString>

namespace names {

/// Returns why the release @p data must not be installed into @p directory, empty when it may.
/// Refused are:
///   - a version or a program name with a separator, because the updater makes a directory of both;
///   - a file name that is empty, is absolute, is too long for a file system, is listed twice, is
///     also the directory of another one, or has a component that is empty, "." or "..";
///   - a file name whose directory, in @p directory, is a symbolic link that is absolute or leads
///     out of it, is behind too many links, or cannot be looked up.
/// Both "/" and "\" separate components. The reason has no control characters: it is for a log.
QString refusal(const ProgramData& data, const QString& directory);

} // namespace names

#endif // HOST_GUARD_NAMES_H
