// Reads a version file as the updater does, and reports the problems that the updater ignores
// silently.
#ifndef PUBLISHER_MANIFEST_H
#define PUBLISHER_MANIFEST_H

#include "manifest/ProgramData.h"

#include <QByteArray>

#include <optional>

namespace publisher {

class Output;

/// Returns the name of the first element in the version file @p bytes, which is the program's name
/// in a file with one record. Empty when there is none.
QString programNameIn(const QByteArray& bytes);

/// Reads the record of @p program in the version file @p bytes. Reports a zero byte, characters
/// outside ASCII, files that the updater would not see, and that there is no readable record, each
/// as a finding about @p where.
///
/// @return Nothing when there is no readable record.
std::optional<ProgramData> readManifest(const QByteArray& bytes, const QString& program,
                                        const QString& where, Output& output);

} // namespace publisher

#endif // PUBLISHER_MANIFEST_H
