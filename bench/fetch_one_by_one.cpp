// Fetches files one after the other and drops what comes: the least that an update has to do with
// the toolkit's network classes.
//
//   fetch_one_by_one BASE_URL LIST     LIST has one path a line; exit status 0 when all came

#include <QCoreApplication>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <functional>

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    if (argc != 3)
        return 2;
    const QString baseUrl = QString::fromLocal8Bit(argv[1]);
    QFile list(QString::fromLocal8Bit(argv[2]));
    if (!list.open(QIODevice::ReadOnly))
        return 2;

    QNetworkAccessManager manager;
    const std::function<void()> fetchNext = [&] {
        const QByteArray name = list.readLine().trimmed();
        if (name.isEmpty()) {
            QCoreApplication::exit(0);
            return;
        }
        QNetworkReply* reply =
            manager.get(QNetworkRequest(QUrl(baseUrl + QString::fromUtf8(name))));
        QObject::connect(reply, &QNetworkReply::finished, [&fetchNext, reply] {
            reply->deleteLater();
            if (reply->error() != QNetworkReply::NoError || reply->readAll().isEmpty())
                QCoreApplication::exit(1);
            else
                fetchNext();
        });
    };
    fetchNext();
    return QCoreApplication::exec();
}
