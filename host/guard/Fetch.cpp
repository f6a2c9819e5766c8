// Small files, fetched into memory.

#include "host/guard/Fetch.h"

#include "updater/Requests.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

#include <memory>

namespace {

/// One transfer in an event loop of its own.
class Fetching
{
public:
    Fetching(const QUrl& url, qint64 mostBytes, int seconds);

    Fetched run();

private:
    void take();
    void giveUp(const QString& failure);

    const qint64 m_mostBytes;
    const int m_seconds;
    Fetched m_fetched;
    QNetworkAccessManager m_manager;
    const std::unique_ptr<QNetworkReply> m_reply;
    QByteArray m_block = QByteArray(65536, Qt::Uninitialized);
    QTimer m_silence;
    QEventLoop m_loop;
};

Fetching::Fetching(const QUrl& url, qint64 mostBytes, int seconds)
    : m_mostBytes(mostBytes), m_seconds(seconds), m_reply(m_manager.get(guardedRequest(url)))
{
    m_reply->setReadBufferSize(m_block.size());
    m_silence.setSingleShot(true);
    m_silence.setInterval(seconds * 1000);
    const auto restart = [this] {
        m_silence.start();
    };
    QObject::connect(m_reply.get(), &QNetworkReply::metaDataChanged, &m_loop, restart);
    QObject::connect(m_reply.get(), &QNetworkReply::downloadProgress, &m_loop, restart);
    QObject::connect(m_reply.get(), &QNetworkReply::readyRead, &m_loop, [this] { take(); });
    QObject::connect(m_reply.get(), &QNetworkReply::finished, &m_loop, &QEventLoop::quit);
    QObject::connect(&m_silence, &QTimer::timeout, &m_loop, [this] {
        giveUp(QStringLiteral("nothing came for %1 seconds").arg(m_seconds));
    });
}

Fetched Fetching::run()
{
    m_silence.start();
    m_loop.exec();
    if (m_fetched.failure.isEmpty())
        take();
    if (m_fetched.failure.isEmpty())
        m_fetched.failure = damageOf(*m_reply, m_fetched.body.size());
    if (!m_fetched.failure.isEmpty())
        m_fetched.body.clear();
    return m_fetched;
}

void Fetching::take()
{
    m_silence.start();
    const QString refusal = refusalOf(*m_reply);
    if (!refusal.isEmpty()) {
        giveUp(refusal);
        return;
    }
    qint64 count = 0;
    while ((count = m_reply->read(m_block.data(), m_block.size())) > 0) {
        if (m_fetched.body.size() + count > m_mostBytes) {
            giveUp(QStringLiteral("more than %1 bytes").arg(m_mostBytes));
            return;
        }
        m_fetched.body.append(m_block.constData(), static_cast<int>(count));
    }
}

/// Ends the transfer. What Qt still has to say about it is not heard.
void Fetching::giveUp(const QString& failure)
{
    m_fetched.failure = failure;
    m_reply->disconnect(&m_loop);
    m_silence.stop();
    m_loop.quit();
}

} // namespace

Fetched fetch(const QUrl& url, qint64 mostBytes, int seconds)
{
    return Fetching(url, mostBytes, seconds).run();
}

QNetworkRequest guardedRequest(const QUrl& url)
{
    QNetworkRequest request = requests::requestFor(url);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    return request;
}

QString refusalOf(const QNetworkReply& reply)
{
    const QVariant status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.toInt() == 200)
        return QString();
    if (status.isValid())
        return QStringLiteral("the server answered with status %1").arg(status.toInt());
    if (reply.error() != QNetworkReply::NoError)
        return reply.errorString();
    return QStringLiteral("no answer over HTTP");
}

QString damageOf(const QNetworkReply& reply, qint64 received)
{
    if (reply.error() != QNetworkReply::NoError)
        return reply.errorString();
    // Now and then Qt takes the end of a connection for that of the body. (The length of a
    // compressed body is not that of its contents.)
    const QVariant length = reply.header(QNetworkRequest::ContentLengthHeader);
    if (length.isValid() && !reply.hasRawHeader("Content-Encoding") &&
        length.toLongLong() != received)
        return QStringLiteral("the transfer ended early");
    return QString();
}
