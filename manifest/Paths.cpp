// Path rules that publisher and updater share.

#include "manifest/Paths.h"

namespace paths {

namespace {

QString withSlashes(QString path)
{
    return path.replace(QLatin1Char('\\'), QLatin1Char('/'));
}

} // namespace

bool endsWithSeparator(const QString& path)
{
    return path.endsWith(QLatin1Char('/')) || path.endsWith(QLatin1Char('\\'));
}

QString withSeparator(const QString& path)
{
    return endsWithSeparator(path) ? path : path + QDir::separator();
}

QString withoutSeparator(const QString& path)
{
    QString shorter = path;
    while (endsWithSeparator(shorter))
        shorter.chop(1);
    return shorter;
}

int lastSeparator(const QString& path)
{
    return static_cast<int>(
        qMax(path.lastIndexOf(QLatin1Char('\\')), path.lastIndexOf(QLatin1Char('/'))));
}

std::optional<QString> directoryPart(const QString& path)
{
    const int separator = lastSeparator(path);
    if (separator < 0)
        return std::nullopt;
    return path.left(separator);
}

bool isInside(const QString& path, const QString& top)
{
    const QString inner = withSlashes(withoutSeparator(path));
    const QString outer = withSlashes(withoutSeparator(top));
    if (outer.isEmpty() || !inner.startsWith(outer, Qt::CaseInsensitive))
        return false;
    // A sibling whose name merely begins with the same letters is not inside.
    return inner.size() == outer.size() || inner.at(outer.size()) == QLatin1Char('/');
}

QString besideVersionFile(const QString& versionFileUrl, const QString& name)
{
    return versionFileUrl.left(versionFileUrl.lastIndexOf(QLatin1Char('/')) + 1) + name;
}

QRegularExpression wildcard(const QString& pattern)
{
    const QString text =
        QRegularExpression::escape(pattern).replace(QLatin1String("\\*"), QLatin1String(".*"));
    return QRegularExpression(QRegularExpression::anchoredPattern(text),
                              QRegularExpression::DotMatchesEverythingOption);
}

QFileInfoList releaseEntries(const QDir& dir)
{
    // NoSort means the order of the QDir itself, which is by name. Version files rely on it.
    return dir.entryInfoList(QDir::Dirs | QDir::Files | QDir::Hidden | QDir::System |
                                 QDir::NoDotAndDotDot,
                             QDir::NoSort);
}

} // namespace paths
