// The clone of an installation: made of links, checked, brought up to date and exchanged.

#include "host/guard/Clone.h"

#include "host/guard/Attributes.h"
#include "host/guard/Exchange.h"
#include "manifest/Digest.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr mode_t modeBits = 07777;

mode_t modeOf(const fstree::Entry& entry)
{
    return entry.status.st_mode & modeBits;
}

/// True when the file at @p path has the size and the digest of @p file. Links are followed, as the
/// updater does.
bool isIntact(const QString& path, const ProgramFile& file)
{
    const QFileInfo info(path);
    if (!info.isFile() || static_cast<quint64>(info.size()) != file.size)
        return false;
    const std::optional<QString> sha1 = digest::sha1OfFile(path);
    return sha1 && digest::isSame(*sha1, file.sha1);
}

/// Returns @p mode with execute permission for all who may read.
mode_t executable(mode_t mode)
{
    return mode | S_IXUSR | ((mode & (S_IRGRP | S_IROTH)) >> 2);
}

QString refusalToClone(const fstree::Entry& entry)
{
    if (entry.kind == fstree::Kind::Other)
        return QStringLiteral(": neither a file nor a directory nor a link");
    if (entry.kind == fstree::Kind::File && (entry.status.st_mode & (S_ISUID | S_ISGID)) != 0)
        return QStringLiteral(": a set-uid or set-gid file");
    return QString();
}

QString about(const QByteArray& name, const char* what)
{
    return QFile::decodeName(name) + QLatin1Char(' ') + QLatin1String(what);
}

} // namespace

Clone::Clone(const QByteArray& directory, const ProgramData& release)
    : m_directory(directory), m_release(release)
{
    for (const ProgramFile& file : m_release.files) {
        const QByteArray name = pathOf(file.name);
        m_listed.insert(name);
        // Both separators, because the updater makes a directory of what is before either.
        for (int i = 0; i < name.size(); ++i) {
            if (name.at(i) == '/' || name.at(i) == '\\')
                m_parents.insert(name.left(i));
        }
    }
}

/// Where the file @p name really is, when a directory of its path is a link within the
/// installation.
QByteArray Clone::pathOf(const QString& name) const
{
    const QByteArray path = QFile::encodeName(name);
    const auto slash = path.lastIndexOf('/');
    return slash < 0 ? path : fstree::joined(realDirectory(path.left(slash)), path.mid(slash + 1));
}

QByteArray Clone::realDirectory(const QByteArray& name) const
{
    const auto known = m_realDirectories.find(name);
    if (known != m_realDirectories.end())
        return known->second;
    QByteArray directory;
    if (char* real = ::realpath(sourcePath(name).constData(), nullptr)) {
        directory = QByteArray(real).mid(m_directory.size() + 1);
        std::free(real);
    } else { // It will be made.
        directory = pathOf(QFile::decodeName(name));
    }
    return m_realDirectories[name] = directory;
}

QVector<ProgramFile> Clone::findDifferences()
{
    QVector<ProgramFile> different;
    for (const ProgramFile& file : m_release.files) {
        const QByteArray name = QFile::encodeName(file.name);
        fstree::Entry entry;
        fstree::readEntry(sourcePath(name), entry);
        if (isIntact(QFile::decodeName(sourcePath(name)), file)) {
            m_intact[name] = entry;
        } else {
            different.append(file);
            m_replaced.insert(pathOf(file.name));
        }
    }
    return different;
}

bool Clone::make(const QByteArray& path, QString& why)
{
    m_path = path;
    if (!fstree::read(m_directory, m_source, why))
        return false;
    for (const auto& [name, entry] : m_source) {
        const QString refusal = refusalToClone(entry);
        if (!refusal.isEmpty()) {
            why = QFile::decodeName(sourcePath(name)) + refusal;
            return false;
        }
    }
    const fstree::Entries entries = m_source;
    for (const auto& [name, entry] : entries) {
        // Written since it was hashed? (A new link changes the time that is compared here.)
        const auto intact = m_intact.find(name);
        if (intact != m_intact.end() && !fstree::isUntouched(intact->second, entry))
            m_intact.erase(intact);
        if (m_replaced.count(name) == 0 && !add(name, entry, why))
            return false;
    }
    return true;
}

/// Makes @p name, which the installation has, in the clone. Directories can be written until the
/// end, whatever their mode.
bool Clone::add(const QByteArray& name, const fstree::Entry& entry, QString& why)
{
    const QByteArray path = clonePath(name);
    switch (entry.kind) {
    case fstree::Kind::Directory: {
        if (::mkdir(path.constData(), S_IRWXU) != 0 && errno != EEXIST)
            break;
        return attributes::copyDirectory(sourcePath(name), path, modeOf(entry) | S_IRWXU, why);
    }
    case fstree::Kind::Link:
        if (::symlink(entry.target.constData(), path.constData()) != 0)
            break;
        return true;
    case fstree::Kind::File:
        return addFile(name, why);
    case fstree::Kind::Other:
        why = QFile::decodeName(sourcePath(name)) + refusalToClone(entry);
        return false;
    }
    why = fstree::systemError(path);
    return false;
}

bool Clone::addFile(const QByteArray& name, QString& why)
{
    const QByteArray source = sourcePath(name);
    const QByteArray path = clonePath(name);
    if (::linkat(AT_FDCWD, source.constData(), AT_FDCWD, path.constData(), 0) == 0) {
        fstree::readEntry(path, m_source[name]); // It may have been replaced since it was read.
        return true;
    }
    if (errno == ENOENT && ::access(source.constData(), F_OK) != 0) {
        m_source.erase(name); // Removed since it was read.
        return true;
    }
    return attributes::copyFile(source, path, why) && fstree::readEntry(path, m_copies[name]);
}

bool Clone::isTheSame(const QByteArray& name, const fstree::Entry& source,
                      const fstree::Entry& clone) const
{
    if (source.kind != clone.kind)
        return false;
    if (source.kind == fstree::Kind::Link)
        return source.target == clone.target;
    if (source.kind == fstree::Kind::Directory)
        return true;
    const auto copy = m_copies.find(name);
    if (copy != m_copies.end())
        return fstree::isUnchanged(copy->second, clone);
    return source.status.st_dev == clone.status.st_dev &&
           source.status.st_ino == clone.status.st_ino;
}

bool Clone::isExpected(const QByteArray& name) const
{
    return m_source.count(name) != 0 || m_replaced.count(name) != 0 || m_parents.count(name) != 0;
}

bool Clone::isWhole(QString& why)
{
    fstree::Entries clone;
    if (!fstree::read(m_path, clone, why))
        return false;
    for (const auto& [name, entry] : clone) {
        if (!isExpected(name)) {
            why = about(name, "was added");
            return false;
        }
        // Its mode will be set: nobody else may see it.
        if (m_replaced.count(name) != 0 &&
            (entry.kind != fstree::Kind::File || entry.status.st_nlink != 1)) {
            why = about(name, "is not a file of its own");
            return false;
        }
    }
    for (const auto& [name, entry] : m_source) {
        if (m_replaced.count(name) != 0)
            continue;
        const auto found = clone.find(name);
        if (found == clone.end() || !isTheSame(name, entry, found->second)) {
            why = about(name, "was changed");
            return false;
        }
    }
    for (const ProgramFile& file : m_release.files) {
        const QByteArray name = QFile::encodeName(file.name);
        if (!isStillIntact(name, clone) && !isIntact(QFile::decodeName(clonePath(name)), file)) {
            why = about(name, "is missing or damaged");
            return false;
        }
    }
    return true;
}

/// True when the file @p name of the clone is a link to one that was found intact, and that nobody
/// has touched since. It need not be hashed once more.
bool Clone::isStillIntact(const QByteArray& name, const fstree::Entries& clone) const
{
    const auto linked = m_source.find(name);
    const auto found = clone.find(name);
    return m_intact.count(name) != 0 && linked != m_source.end() && found != clone.end() &&
           fstree::isUntouched(linked->second, found->second) && fstree::wasQuiet(found->second);
}

bool Clone::setModes(const std::function<bool(const QByteArray&)>& mustBeExecutable, QString& why)
{
    for (const QByteArray& name : m_listed) {
        const bool isReplaced = m_replaced.count(name) != 0;
        const auto old = m_source.find(name);
        const bool isOld = old != m_source.end() && old->second.kind == fstree::Kind::File;
        if (!isReplaced && !isOld)
            continue;
        mode_t mode = isOld ? modeOf(old->second) : S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH;
        const bool lacksPermission = (mode & S_IXUSR) == 0 && mustBeExecutable(name);
        if (lacksPermission)
            mode = executable(mode);
        if (!isReplaced && !lacksPermission)
            continue;
        if (!isReplaced && !makeOwn(name, why))
            return false;
        if (!setMode(name, mode, why))
            return false;
    }
    return true;
}

/// Sets the mode of a file that has no link in the installation, and the group that it had there.
bool Clone::setMode(const QByteArray& name, mode_t mode, QString& why)
{
    const QByteArray path = clonePath(name);
    const auto old = m_source.find(name);
    // A group that the user is not in cannot be given; then the user's own stays.
    const bool hasOtherGroup =
        old != m_source.end() && old->second.kind == fstree::Kind::File &&
        ::lchown(path.constData(), static_cast<uid_t>(-1), old->second.status.st_gid) != 0;
    Q_UNUSED(hasOtherGroup)
    if (::chmod(path.constData(), mode) == 0)
        return true;
    why = fstree::systemError(path);
    return false;
}

/// Replaces a link by a copy, so that its mode can be changed.
bool Clone::makeOwn(const QByteArray& name, QString& why)
{
    const QByteArray path = clonePath(name);
    const QByteArray copy = m_path + ".copy";
    if (!attributes::copyFile(path, copy, why))
        return false;
    if (::rename(copy.constData(), path.constData()) == 0)
        return true;
    why = fstree::systemError(path);
    return false;
}

bool Clone::removeObsolete(const ProgramData& earlier, QString& why)
{
    for (const ProgramFile& file : earlier.files) {
        const QByteArray name = pathOf(file.name);
        const auto old = m_source.find(name);
        const bool isFile = old != m_source.end() && old->second.kind == fstree::Kind::File;
        const QByteArray path = clonePath(name);
        if (!isFile || m_listed.count(name) != 0 || !isIntact(QFile::decodeName(path), file))
            continue;
        if (::unlink(path.constData()) != 0) {
            why = fstree::systemError(path);
            return false;
        }
        m_removed.insert(name);
    }
    return true;
}

bool Clone::catchUp(QString& why)
{
    fstree::Entries now;
    if (!fstree::read(m_directory, now, why))
        return false;
    for (const QByteArray& name : m_listed) {
        const auto then = m_source.find(name);
        const auto found = now.find(name);
        const bool wasThere = then != m_source.end();
        const bool isThere = found != now.end();
        if (wasThere != isThere || (isThere && !fstree::isUnchanged(then->second, found->second))) {
            why = about(name, "was changed in the installation during the update");
            return false;
        }
    }
    if (!removeGone(now, why))
        return false;
    for (const auto& [name, entry] : now) {
        const auto then = m_source.find(name);
        if (then != m_source.end() && fstree::isUnchanged(then->second, entry))
            continue;
        m_source[name] = entry;
        if (!add(name, entry, why))
            return false;
    }
    return true;
}

/// Removes from the clone what the installation no longer has, or has another one of.
bool Clone::removeGone(const fstree::Entries& now, QString& why)
{
    // From the last to the first: what a directory holds before the directory.
    for (auto then = m_source.rbegin(); then != m_source.rend(); ++then) {
        const auto& [name, entry] = *then;
        const auto found = now.find(name);
        const bool isThere = found != now.end() && found->second.kind == entry.kind;
        const bool isDirectory = entry.kind == fstree::Kind::Directory;
        if (isThere && (isDirectory || fstree::isUnchanged(entry, found->second)))
            continue;
        if (m_removed.count(name) != 0)
            continue;
        const QByteArray path = clonePath(name);
        if (::unlinkat(AT_FDCWD, path.constData(), isDirectory ? AT_REMOVEDIR : 0) != 0) {
            why = fstree::systemError(path);
            return false;
        }
    }
    for (auto then = m_source.begin(); then != m_source.end();)
        then = now.count(then->first) != 0 ? std::next(then) : m_source.erase(then);
    return true;
}

bool Clone::exchange(QString& why)
{
    return setModesOfDirectories(why) && exchange::sync(m_path, why) &&
           exchange::exchange(m_path, m_directory, why);
}

bool Clone::setModesOfDirectories(QString& why)
{
    fstree::Entries clone;
    if (!fstree::read(m_path, clone, why))
        return false;
    // What a directory holds before the directory, which may be closed afterwards.
    for (auto entry = clone.rbegin(); entry != clone.rend(); ++entry) {
        if (entry->second.kind != fstree::Kind::Directory)
            continue;
        const auto old = m_source.find(entry->first);
        const mode_t special = modeOf(entry->second) & (S_ISGID | S_ISVTX);
        const mode_t mode = old != m_source.end()
                                ? modeOf(old->second)
                                : special | S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;
        const QByteArray path = clonePath(entry->first);
        if (mode != modeOf(entry->second) && ::chmod(path.constData(), mode) != 0) {
            why = fstree::systemError(path);
            return false;
        }
    }
    return true;
}
