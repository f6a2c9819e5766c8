// Fetches files one after the other: the least that an update has to do with Qt's network
// classes.
#ifndef BENCH_FETCHONEBYONE_H
#define BENCH_FETCHONEBYONE_H

#include <QCoreApplication>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <functional>

/// Runs the event loop until all files have come that the file @p list names, one path a line.
/// @param fetched is called with the contents of each, and returns whether to go on
/// @return The exit status: 0 when all came, 1 at the first that did not, 2 without a list.
inline int fetchOneByOne(const QString& baseUrl, const QString& list,
                         const std::function<bool(const QByteArray&)>& fetched)
{
    QFile names(list);
    if (!names.open(QIODevice::ReadOnly))
        return 2;

    QNetworkAccessManager manager;
    const std::function<void()> fetchNext = [&] {
        const QByteArray name = names.readLine().trimmed();
        if (name.isEmpty()) {
            QCoreApplication::exit(0);
            return;
        }
        QNetworkReply* reply =
            manager.get(QNetworkRequest(QUrl(baseUrl + QString::fromUtf8(name))));
        QObject::connect(reply, &QNetworkReply::finished, [&, reply] {
            reply->deleteLater();
            const QByteArray body = reply->readAll();
            if (reply->error() == QNetworkReply::NoError && !body.isEmpty() && fetched(body))
                fetchNext();
            else
                QCoreApplication::exit(1);
        });
    };
    fetchNext();
    return QCoreApplication::exec();
}

#endif // BENCH_FETCHONEBYONE_H
