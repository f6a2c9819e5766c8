// The hidden directories beside an installation.

#include "host/guard/Workspace.h"

#include "host/guard/FsTree.h"
#include "host/guard/Processes.h"
#include "manifest/Digest.h"

#include <cstdlib>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char downloadsName[] = "downloads";

QByteArray parentOf(const QByteArray& path)
{
    return path.left(path.lastIndexOf('/'));
}

/// The start of the path of every hidden directory of the installation @p directory. It tells
/// installations in the same directory apart.
QByteArray prefixFor(const QByteArray& directory)
{
    constexpr int enough = 16;
    return parentOf(directory) + "/.updater-guard-" +
           digest::sha1(directory).left(enough).toLatin1() + '-';
}

bool isOurs(const fstree::Entry& entry)
{
    return entry.kind == fstree::Kind::Directory && entry.status.st_uid == ::geteuid() &&
           (entry.status.st_mode & 07777) == S_IRWXU;
}

/// Makes a directory with a new name; empty when that fails.
QByteArray makeDirectory(const QByteArray& prefix)
{
    QByteArray path = prefix + "XXXXXX";
    return ::mkdtemp(path.data()) != nullptr ? path : QByteArray();
}

/// Removes all that the directory @p path holds but @p kept.
void removeContents(const QByteArray& path, const QByteArray& kept)
{
    QString ignored;
    for (const QByteArray& name : fstree::names(path)) {
        if (name != kept)
            fstree::remove(fstree::joined(path, name), ignored);
    }
}

} // namespace

Workspace::Workspace(const QByteArray& directory) : m_prefix(prefixFor(directory)) {}

void Workspace::recover()
{
    const QByteArray parent = parentOf(m_prefix);
    for (const QByteArray& name : fstree::names(parent)) {
        const QByteArray found = fstree::joined(parent, name);
        fstree::Entry entry;
        if (!found.startsWith(m_prefix) || !fstree::readEntry(found, entry) || !isOurs(entry))
            continue;
        // Under another name first: from here on nothing finds it by the old one.
        const QByteArray path = makeDirectory(m_prefix);
        if (path.isEmpty() || ::rename(found.constData(), path.constData()) != 0 ||
            !fstree::readEntry(path, entry) || !isOurs(entry))
            continue;
        processes::endThoseIn(path);
        removeContents(path, downloadsName);
        m_recovered.append(path);
    }
}

bool Workspace::make(QString& why)
{
    m_path = makeDirectory(m_prefix);
    if (m_path.isEmpty()) {
        why = fstree::systemError(parentOf(m_prefix));
        return false;
    }
    for (const QByteArray& path : {downloads(), fstree::joined(m_path, "tmp")}) {
        if (::mkdir(path.constData(), S_IRWXU) != 0) {
            why = fstree::systemError(path);
            return false;
        }
    }
    for (const QByteArray& path : m_recovered)
        moveDownloads(fstree::joined(path, downloadsName));
    return true;
}

void Workspace::moveDownloads(const QByteArray& from) const
{
    for (const QByteArray& name : fstree::names(from)) {
        const QByteArray path = fstree::joined(from, name);
        fstree::Entry entry;
        if (fstree::readEntry(path, entry) && entry.kind == fstree::Kind::File &&
            entry.status.st_nlink == 1)
            ::rename(path.constData(), fstree::joined(downloads(), name).constData());
    }
}

void Workspace::remove(Downloads downloads)
{
    QString ignored;
    const bool isMade = !m_path.isEmpty();
    for (const QByteArray& path : m_recovered) {
        // Without a directory of our own, these are still the only downloads.
        if (isMade || downloads == Downloads::Remove)
            fstree::remove(path, ignored);
    }
    if (!isMade)
        return;
    if (downloads == Downloads::Keep && !fstree::names(this->downloads()).empty())
        removeContents(m_path, downloadsName);
    else
        fstree::remove(m_path, ignored);
}
