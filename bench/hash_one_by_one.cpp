// Reads and hashes files one after the other, each whole and in one call, after making an
// application object: what the toolkit alone takes to describe a tree or to find it in place.
//
//   hash_one_by_one LIST     LIST has one path a line; prints as sha1sum does

#include <QApplication>
#include <QCryptographicHash>
#include <QFile>

#include <cstdio>

int main(int argc, char** argv)
{
    const QApplication app(argc, argv);
    if (argc != 2)
        return 2;
    QFile list(QString::fromLocal8Bit(argv[1]));
    if (!list.open(QIODevice::ReadOnly))
        return 2;
    while (!list.atEnd()) {
        const QByteArray path = list.readLine().trimmed();
        QFile file(QString::fromLocal8Bit(path));
        if (!file.open(QIODevice::ReadOnly))
            return 1;
        const QByteArray sha1 =
            QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha1).toHex();
        std::printf("%s  %s\n", sha1.constData(), path.constData());
    }
    return 0;
}
