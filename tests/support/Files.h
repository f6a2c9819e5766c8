// Files and directories as tests need them. A fixture that cannot be made ends the test program:
// nothing that follows would mean anything.
#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace files {

/// Makes the directory @p path with all its parents.
void makeDirectory(const QString& path);

/// Writes @p contents to @p path, making the directories on the way.
void write(const QString& path, const QByteArray& contents);

/// The same, and makes @p path executable.
void writeExecutable(const QString& path, const QByteArray& contents);

/// Returns the contents of the file @p path.
QByteArray read(const QString& path);

/// Makes @p path a symbolic link to @p target, which is stored as it is given.
void link(const QString& target, const QString& path);

/// Sets the permission bits of @p path, as chmod does.
void setMode(const QString& path, unsigned mode);

/// Returns the permission bits of @p path.
unsigned mode(const QString& path);

/// Returns the SHA-1 of @p contents in lower-case hexadecimal.
QString sha1(const QByteArray& contents);

/// Returns everything below @p dir, sorted, one line each: "sub/" for a directory, "sub/a.txt" for
/// a file. Links are listed like files and not followed.
QStringList list(const QString& dir);

} // namespace files

/// A temporary directory that knows the paths inside it.
class TestDir
{
public:
    TestDir();

    QString path() const { return m_dir.path(); }
    QString operator/(const QString& name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
};

/// Makes @p path the temporary directory (TMPDIR) until the end of the scope.
class ScopedTmpDir
{
public:
    explicit ScopedTmpDir(const QString& path);
    ~ScopedTmpDir();
    Q_DISABLE_COPY(ScopedTmpDir)

private:
    QByteArray m_previous;
};

#endif // TESTS_SUPPORT_FILES_H
