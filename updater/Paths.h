// The path rules that several subsystems share. Both "/" and "\" separate, on every platform.
#ifndef UPDATER_PATHS_H
#define UPDATER_PATHS_H

#include <QString>

namespace paths {

/// True when @p path ends with "/" or with "\".
bool endsWithSeparator(const QString& path);

/// Returns @p path ready for a name to be appended: with the platform's separator at its end,
/// unless it ends with a separator already. An empty path becomes the separator alone.
QString withSeparator(const QString& path);

} // namespace paths

#endif // UPDATER_PATHS_H
