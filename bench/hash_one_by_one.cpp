// Reads and hashes files one after the other, each whole and in one call, after making an
// application object: what the toolkit alone takes to describe a tree or to find it in place.
//
//   hash_one_by_one DIRECTORY     the files below it
//   hash_one_by_one LIST          the files that LIST names, one path a line
//
// Exit status 0 when all could be read.

#include <QApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>

namespace {

bool hashFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) &&
           !QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha1).isEmpty();
}

bool hashDirectory(const QDir& directory)
{
    const QFileInfoList entries =
        directory.entryInfoList(QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        const QString path = entry.filePath();
        if (!(entry.isDir() ? hashDirectory(QDir(path)) : hashFile(path)))
            return false;
    }
    return true;
}

bool hashListed(const QString& path)
{
    QFile list(path);
    if (!list.open(QIODevice::ReadOnly))
        return false;
    while (!list.atEnd()) {
        if (!hashFile(QString::fromLocal8Bit(list.readLine().trimmed())))
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    const QApplication app(argc, argv);
    if (argc != 2)
        return 2;
    const QString path = QString::fromLocal8Bit(argv[1]);
    return (QFileInfo(path).isDir() ? hashDirectory(QDir(path)) : hashListed(path)) ? 0 : 1;
}
