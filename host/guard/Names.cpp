// Judges the names of a release. They are judged as bytes, as the file system gets them.

#include "host/guard/Names.h"

#include "manifest/Paths.h"
#include "manifest/Printable.h"

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QList>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace names {

namespace {

/// As many as Linux follows for one path.
constexpr int mostLinks = 40;

bool hasSeparator(const QString& text)
{
    return paths::lastSeparator(text) >= 0;
}

/// @p name with "/" for every separator.
QString portableName(QString name)
{
    return name.replace(QLatin1Char('\\'), QLatin1Char('/'));
}

/// For a log: @p name comes from outside, and may be very long.
QString quotedName(const QString& name)
{
    constexpr int mostCharacters = 200;
    const QString shown = manifest::printable(name.left(mostCharacters));
    return QLatin1Char('"') + shown + QLatin1String(name.size() > mostCharacters ? "...\"" : "\"");
}

QByteArray parentOf(const QByteArray& path)
{
    const auto separator = path.lastIndexOf('/');
    return separator < 0 ? QByteArray() : path.left(separator);
}

QByteArray inside(const QByteArray& directory, const QByteArray& name)
{
    return directory.isEmpty() ? name : QByteArray(directory + '/' + name);
}

/// Follows the directories of names, one component after the other, as far as they are there.
class DirectoryWalk
{
public:
    explicit DirectoryWalk(const QString& top) : m_top(QFile::encodeName(paths::withSeparator(top)))
    {
    }

    /// Returns why no file may be put into @p directory, a path below the top without "." and "..";
    /// empty when one may.
    QString refusal(const QByteArray& directory);

private:
    /// Where a path leads.
    struct Place
    {
        QByteArray path; ///< Below the top, without links.
        int links = 0;   ///< That were followed.
        bool exists = true;
    };

    QString enter(Place& place, const QByteArray& name) const;
    QString follow(Place& place, const QByteArray& link, QList<QByteArray>& pending) const;

    const QByteArray m_top;
    QHash<QByteArray, Place> m_places; ///< Of the directories seen.
};

QString DirectoryWalk::refusal(const QByteArray& directory)
{
    if (directory.isEmpty() || m_places.contains(directory))
        return QString();
    Place place;
    QByteArray walked;
    const QList<QByteArray> components = directory.split('/');
    for (const QByteArray& component : components) {
        walked = inside(walked, component);
        const auto known = m_places.constFind(walked);
        if (known != m_places.constEnd()) {
            place = *known;
        } else {
            const QString why = enter(place, component);
            if (!why.isEmpty())
                return why;
            m_places.insert(walked, place);
        }
        if (!place.exists) // What is below it is not there either.
            break;
    }
    return QString();
}

/// Goes from @p place to the entry @p name there.
QString DirectoryWalk::enter(Place& place, const QByteArray& name) const
{
    QList<QByteArray> pending{name};
    while (!pending.isEmpty()) {
        const QByteArray next = pending.takeFirst();
        if (next.isEmpty() || next == ".")
            continue;
        if (next == "..") {
            if (place.path.isEmpty())
                return QStringLiteral("leads out of the installation through a link");
            place.path = parentOf(place.path);
            place.exists = true;
            continue;
        }
        const QByteArray path = inside(place.path, next);
        const QByteArray wholePath = m_top + path;
        struct stat entry = {};
        place.exists = ::lstat(wholePath.constData(), &entry) == 0;
        if (!place.exists && errno != ENOENT && errno != ENOTDIR)
            return QLatin1String("cannot be looked up: ") + qt_error_string(errno);
        if (!place.exists || !S_ISLNK(entry.st_mode)) {
            place.path = path; // One that is not there may be made by another file of the release.
            continue;
        }
        const QString why = follow(place, path, pending);
        if (!why.isEmpty())
            return why;
    }
    return QString();
}

/// Puts the target of @p link in front of the components that are @p pending.
QString DirectoryWalk::follow(Place& place, const QByteArray& link,
                              QList<QByteArray>& pending) const
{
    const QByteArray wholePath = m_top + link;
    std::array<char, PATH_MAX> buffer{};
    const ssize_t size = ::readlink(wholePath.constData(), buffer.data(), buffer.size());
    if (size < 0)
        return QLatin1String("leads through a link that cannot be read: ") + qt_error_string(errno);
    if (static_cast<size_t>(size) == buffer.size() || ++place.links > mostLinks)
        return QStringLiteral("leads through too many links");
    const QByteArray target(buffer.data(), static_cast<int>(size));
    if (target.startsWith('/'))
        return QStringLiteral("leads through a link to an absolute path");
    pending = target.split('/') + pending;
    return QString();
}

/// Why no file system takes @p path, or none safely; empty when there is no such reason.
QString refusalOfPath(const QByteArray& path)
{
    if (path.isEmpty())
        return QStringLiteral("is empty");
    if (path.startsWith('/'))
        return QStringLiteral("is absolute");
    if (path.size() >= PATH_MAX)
        return QStringLiteral("is too long");
    const QList<QByteArray> components = path.split('/');
    if (components.first() == "..")
        return QStringLiteral("leads out of the installation");
    for (const QByteArray& component : components) {
        if (component.isEmpty())
            return QStringLiteral("has an empty component");
        if (component == "." || component == "..")
            return QStringLiteral("has the component \"%1\"").arg(QLatin1String(component));
        if (component.size() > NAME_MAX)
            return QStringLiteral("is too long");
    }
    return QString();
}

QString refusalOfName(const QString& name, DirectoryWalk& walk)
{
    const QByteArray path = QFile::encodeName(portableName(name));
    QString why = refusalOfPath(path);
    if (why.isEmpty())
        why = walk.refusal(parentOf(path));
    // The updater makes the directory before a "\" as well, but to the system "\" is a letter.
    if (why.isEmpty() && name.contains(QLatin1Char('\\')))
        why = walk.refusal(parentOf(QFile::encodeName(name)));
    return why;
}

/// Why @p files cannot be in one tree; empty when they can.
QString refusalOfTree(const QVector<ProgramFile>& files)
{
    // With separators that are lower than any character, a directory is followed by what is in it.
    const QChar separator(0);
    QStringList sorted;
    sorted.reserve(files.size());
    for (const ProgramFile& file : files)
        sorted.append(portableName(file.name).replace(QLatin1Char('/'), separator));
    std::sort(sorted.begin(), sorted.end());

    const auto clash =
        std::adjacent_find(sorted.cbegin(), sorted.cend(), [&](const QString& a, const QString& b) {
            return b.startsWith(a) && (b.size() == a.size() || b.at(a.size()) == separator);
        });
    if (clash == sorted.cend())
        return QString();
    const bool isSame = *clash == *std::next(clash);
    return QStringLiteral("the file name %1 is %2")
        .arg(quotedName(QString(*clash).replace(separator, QLatin1Char('/'))),
             isSame ? QLatin1String("listed twice")
                    : QLatin1String("also the directory of another file"));
}

} // namespace

QString refusal(const ProgramData& data, const QString& directory)
{
    if (hasSeparator(data.name))
        return QStringLiteral("the program name %1 has a separator").arg(quotedName(data.name));
    if (hasSeparator(data.version))
        return QStringLiteral("the version %1 has a separator").arg(quotedName(data.version));
    DirectoryWalk walk(directory);
    for (const ProgramFile& file : data.files) {
        const QString why = refusalOfName(file.name, walk);
        if (!why.isEmpty())
            return QStringLiteral("the file name %1 %2").arg(quotedName(file.name), why);
    }
    return refusalOfTree(data.files);
}

} // namespace names
