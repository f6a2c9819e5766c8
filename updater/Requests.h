// Requests to the web server, the same with every version of Qt.
//
//   QNetworkReply* reply = manager.get(requests::requestFor(QUrl(updateUrl)));
#ifndef UPDATER_REQUESTS_H
#define UPDATER_REQUESTS_H

#include <QNetworkRequest>
#include <QUrl>

namespace requests {

/// Returns the request for @p url: redirects are not followed (Qt 6 would follow them), and a
/// compressed body may inflate to any size (Qt 6.2 and later would refuse one that grows past 10
/// MiB at a high ratio).
inline QNetworkRequest requestFor(const QUrl& url)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
#if QT_VERSION >= QT_VERSION_CHECK(6, 2, 0)
    request.setDecompressedSafetyCheckThreshold(-1);
#endif
    return request;
}

} // namespace requests

#endif // UPDATER_REQUESTS_H
