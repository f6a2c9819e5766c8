#include "tests/support/Files.h"

#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const char* what, const QString& path)
{
    qFatal("test fixture: cannot %s %s: %s", what, qPrintable(path), strerror(errno));
}

} // namespace

namespace files {

void makeDirectory(const QString& path)
{
    if (!QDir().mkpath(path))
        fail("make directory", path);
}

void write(const QString& path, const QByteArray& contents)
{
    makeDirectory(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(contents) != contents.size() || !file.flush())
        fail("write", path);
}

void writeExecutable(const QString& path, const QByteArray& contents)
{
    write(path, contents);
    setMode(path, 0755);
}

QByteArray read(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        fail("read", path);
    return file.readAll();
}

void link(const QString& target, const QString& path)
{
    makeDirectory(QFileInfo(path).path());
    if (::symlink(QFile::encodeName(target).constData(), QFile::encodeName(path).constData()) != 0)
        fail("link", path);
}

void setMode(const QString& path, unsigned mode)
{
    if (::chmod(QFile::encodeName(path).constData(), static_cast<mode_t>(mode)) != 0)
        fail("change the mode of", path);
}

unsigned mode(const QString& path)
{
    struct stat status;
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        fail("look at", path);
    return static_cast<unsigned>(status.st_mode & 07777);
}

QString sha1(const QByteArray& contents)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(contents, QCryptographicHash::Sha1).toHex());
}

QStringList list(const QString& dir)
{
    QStringList names;
    const QDir top(dir);
    QDirIterator entries(dir, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        const QFileInfo entry(entries.next());
        const bool isDirectory = entry.isDir() && !entry.isSymLink();
        names.append(top.relativeFilePath(entry.filePath()) +
                     (isDirectory ? QStringLiteral("/") : QString()));
    }
    names.sort();
    return names;
}

} // namespace files

TestDir::TestDir()
{
    if (!m_dir.isValid())
        fail("make directory", m_dir.path());
}

ScopedTmpDir::ScopedTmpDir(const QString& path) : m_previous(qgetenv("TMPDIR"))
{
    qputenv("TMPDIR", QFile::encodeName(path));
}

ScopedTmpDir::~ScopedTmpDir()
{
    qputenv("TMPDIR", m_previous);
}
