// Reads and hashes files one after the other, each whole and in one call, after making an
// application object: Qt's share of describing a tree or finding it in place.
//
//   hash_one_by_one DIRECTORY     the files below it
//   hash_one_by_one LIST          the files that LIST names, one path a line
//
// Exit status 0 when all could be read; an empty file is none.

#include <QApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>

namespace {

bool hashFile(const QFileInfo& info)
{
    QFile file(info.filePath());
    return info.size() > 0 && file.open(QIODevice::ReadOnly) &&
           !QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha1).isEmpty();
}

bool hashDirectory(const QDir& directory)
{
    const QFileInfoList entries = directory.entryInfoList(QDir::Dirs | QDir::Files | QDir::Hidden |
                                                          QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        if (!(entry.isDir() ? hashDirectory(QDir(entry.filePath())) : hashFile(entry)))
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
        if (!hashFile(QFileInfo(QString::fromLocal8Bit(list.readLine().trimmed()))))
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
