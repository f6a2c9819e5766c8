// One small file from the web server, held in memory: the version file and its signature.
//
//   const Fetched index = fetch(QUrl(url), 64 * 1024 * 1024, 30);
//   if (!index.failure.isEmpty())
//       ...
#ifndef HOST_GUARD_FETCH_H
#define HOST_GUARD_FETCH_H

#include <QByteArray>
#include <QNetworkRequest>
#include <QString>
#include <QUrl>

class QNetworkReply;

struct Fetched
{
    QByteArray body;
    QString failure; ///< Why it did not come, for a log; empty when it did.
};

/// Fetches @p url, in an event loop of its own. A compressed body is unpacked. A redirect, any HTTP
/// status but 200, a body that is cut, and one of more than @p mostBytes are failures. (Qt does not
/// notice the cut of every body that is compressed or comes in chunks. But a version file that has
/// lost its end cannot be read, nor can a signature.)
/// @param seconds give up when nothing comes for so long
Fetched fetch(const QUrl& url, qint64 mostBytes, int seconds);

/// The request for @p url that the guard makes: no redirects, no limit for what a compressed body
/// unpacks to (callers count), no HTTP/2 (Qt 6 loses requests there while the server closes a
/// connection).
QNetworkRequest guardedRequest(const QUrl& url);

/// Why the body of @p reply is not wanted: there is no answer, or its status is not 200. Empty when
/// it is wanted. For a reply whose header has come or that has ended.
QString refusalOf(const QNetworkReply& reply);

/// Why the body of @p reply, which has ended, is not whole after @p received bytes; empty when
/// nothing is known against it.
QString damageOf(const QNetworkReply& reply, qint64 received);

#endif // HOST_GUARD_FETCH_H
