// Fetches files one after the other in a program with windows: Qt's share of a check. With a
// directory it is Qt's share of an update: the files are hashed and saved there, under numbers, and
// a progress dialog is kept up to date.
//
//   fetch_in_application BASE_URL LIST [FILES DIRECTORY]     LIST has one path a line, FILES lines
//                                                            in all; exit status 0 when all came

#include "bench/FetchOneByOne.h"

#include <QApplication>
#include <QCryptographicHash>
#include <QProgressDialog>

namespace {

QString labelFor(int saved, int files)
{
    return QStringLiteral("Downloading file %1 of %2 (%3 MB left)")
        .arg(saved + 1)
        .arg(files)
        .arg(0.0078125 * (files - saved), 0, 'f', 2);
}

bool save(const QByteArray& body, const QString& path)
{
    QFile file(path);
    return !QCryptographicHash::hash(body, QCryptographicHash::Sha1).isEmpty() &&
           file.open(QIODevice::WriteOnly) && file.write(body) == body.size();
}

} // namespace

int main(int argc, char** argv)
{
    const QApplication app(argc, argv);
    if (argc != 3 && argc != 5)
        return 2;
    const QString baseUrl = QString::fromLocal8Bit(argv[1]);
    const QString list = QString::fromLocal8Bit(argv[2]);
    if (argc == 3)
        return fetchOneByOne(baseUrl, list, [](const QByteArray&) { return true; });

    const int files = QByteArray(argv[3]).toInt();
    const QString directory = QString::fromLocal8Bit(argv[4]) + QLatin1Char('/');
    QProgressDialog dialog(labelFor(0, files), QStringLiteral("Cancel"), 0, files);
    dialog.show();
    int saved = 0;
    const int status = fetchOneByOne(baseUrl, list, [&](const QByteArray& body) {
        if (!save(body, directory + QString::number(++saved)))
            return false;
        dialog.setValue(saved);
        dialog.setLabelText(labelFor(saved, files));
        return true;
    });
    return saved == files ? status : 1;
}
