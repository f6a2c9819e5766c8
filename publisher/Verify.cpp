// Fetches a published release as the updater would, all of it, and checks every file.

#include "publisher/Verify.h"

#include "manifest/Digest.h"
#include "manifest/Paths.h"
#include "publisher/Manifest.h"
#include "publisher/Output.h"
#include "updater/Requests.h"

#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <memory>

namespace publisher {

namespace {

/// Why there is nothing to compare in @p reply; empty when there is something.
QString failureOf(const QNetworkReply& reply, int timeout)
{
    switch (reply.error()) {
    case QNetworkReply::NoError:
        break;
    case QNetworkReply::ContentNotFoundError:
    case QNetworkReply::ContentGoneError:
        return QStringLiteral("missing on the server; upload it");
    case QNetworkReply::OperationCanceledError:
        return QStringLiteral("no data for %1 seconds; try again, or give a longer --timeout")
            .arg(timeout);
    default:
        return QStringLiteral("cannot be fetched; ") + reply.errorString();
    }
    const QVariant target = reply.attribute(QNetworkRequest::RedirectionTargetAttribute);
    if (target.isValid())
        return QStringLiteral(
                   "redirected to %1; the updater does not follow, so serve the file here")
            .arg(target.toUrl().toString());
    return QString();
}

/// Which Content-Encodings to accept. Any is fine for the version file. For release files accept
/// none: a server may send a published .gz with "Content-Encoding: gzip", and the updater would
/// unpack it before checking it.
enum class Encoding { None, Any };

/// Fetches one URL after the other.
class Fetcher
{
public:
    /// Keeps a reference to @p output.
    Fetcher(int timeout, Output& output) : m_timeout(timeout), m_output(output) {}

    /// Fetches @p url, which findings name as @p where.
    /// @return The body as the updater gets it; nothing when the updater would not get one.
    std::optional<QByteArray> fetch(const QUrl& url, const QString& where, Encoding encoding);

private:
    const int m_timeout;
    Output& m_output;
    QNetworkAccessManager m_manager;
};

std::optional<QByteArray> Fetcher::fetch(const QUrl& url, const QString& where, Encoding encoding)
{
    QNetworkRequest request = requests::requestFor(url);
    request.setTransferTimeout(m_timeout * 1000);
    const std::unique_ptr<QNetworkReply> reply(m_manager.get(request));
    QEventLoop loop;
    QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
    // Some replies (to "data:", "file:") are finished already. Qt queues their signal as well.
    loop.exec();

    const QString failure = failureOf(*reply, m_timeout);
    if (!failure.isEmpty()) {
        m_output.finding(where, failure);
        return std::nullopt;
    }
    if (encoding == Encoding::None && reply->hasRawHeader("Content-Encoding"))
        m_output.finding(
            where, QStringLiteral("sent with Content-Encoding %1; switch that off: the updater "
                                  "unpacks the file before it checks it")
                       .arg(QString::fromLatin1(reply->rawHeader("Content-Encoding"))));
    return reply->readAll();
}

void compare(const QByteArray& body, const ProgramFile& file, Output& output)
{
    if (static_cast<quint64>(body.size()) != file.size) {
        output.finding(file.name,
                       QStringLiteral("has %1 bytes; the version file says %2: upload it again")
                           .arg(QString::number(body.size()), QString::number(file.size)));
        return;
    }
    const QString sha1 = digest::sha1(body);
    if (!digest::isSame(sha1, file.sha1))
        output.finding(file.name,
                       QStringLiteral("has the SHA-1 %1; the version file says %2: upload it again")
                           .arg(sha1, file.sha1));
}

} // namespace

void verify(const QString& url, const QString& program, int timeout, Output& output)
{
    Fetcher fetcher(timeout, output);
    const std::optional<QByteArray> bytes = fetcher.fetch(QUrl(url), url, Encoding::Any);
    if (!bytes)
        return;
    const QString name = program.isEmpty() ? programNameIn(*bytes) : program;
    const std::optional<ProgramData> data = readManifest(*bytes, name, url, output);
    if (!data)
        return;
    if (data->files.isEmpty())
        output.finding(url,
                       QStringLiteral("lists no file that the updater sees; an update installs "
                                      "nothing"));

    qsizetype step = 0;
    for (const ProgramFile& file : data->files) {
        output.progress(++step, data->files.size());
        const std::optional<QByteArray> body = fetcher.fetch(
            QUrl(paths::besideVersionFile(url, file.name)), file.name, Encoding::None);
        if (body)
            compare(*body, file, output);
    }
    output.progress(0, 0);
    output.note(QStringLiteral("%1 %2: %3 files checked, %4 findings")
                    .arg(data->name, data->version, QString::number(data->files.size()),
                         QString::number(output.findings())));
}

} // namespace publisher
