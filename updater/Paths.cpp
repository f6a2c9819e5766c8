// The path rules that several subsystems share.

#include "updater/Paths.h"

#include <QDir>

namespace paths {

bool endsWithSeparator(const QString& path)
{
    return path.endsWith(QLatin1Char('/')) || path.endsWith(QLatin1Char('\\'));
}

QString withSeparator(const QString& path)
{
    return endsWithSeparator(path) ? path : path + QDir::separator();
}

} // namespace paths
