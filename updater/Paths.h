// The path rules that several subsystems share. Both "/" and "\" separate, on every platform.
#ifndef UPDATER_PATHS_H
#define UPDATER_PATHS_H

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

/// True when the directory @p path is the directory @p top or lies below it, ignoring case. A
/// separator at the end does not matter. Nothing lies inside the root or inside an empty path.
bool isInside(const QString& path, const QString& top);

} // namespace paths

#endif // UPDATER_PATHS_H
