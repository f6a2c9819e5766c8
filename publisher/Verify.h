// Fetches a published release as the updater would, all of it, and checks every file.
#ifndef PUBLISHER_VERIFY_H
#define PUBLISHER_VERIFY_H

#include <QString>

namespace publisher {

class Output;

/// Checks the release whose version file is at @p url, one file after the other.
///
/// @param program the program's name; empty to take the one in the version file
/// @param timeout how many seconds a transfer may go without progress
void verify(const QString& url, const QString& program, int timeout, Output& output);

} // namespace publisher

#endif // PUBLISHER_VERIFY_H
