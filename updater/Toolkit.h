// Every line that depends on the version of Qt, and nothing else.
//
// Each function keeps one outcome that hosts and release scripts rely on, and says what Qt would do
// without it.
#ifndef UPDATER_TOOLKIT_H
#define UPDATER_TOOLKIT_H

#include <QByteArray>
#include <QDebug>
#include <QLoggingCategory>
#include <QNetworkRequest>
#include <QString>
#include <QTextStream>
#include <QUrl>

namespace toolkit {

/// Sends @p text to the message handler as one debug message, exactly as it is.
///
/// Without the stream's options Qt drops a space at the end and escapes quotes and backslashes. And
/// logging rules (QT_LOGGING_RULES, qtlogging.ini) may have switched debug messages off: they are
/// on for this one.
inline void debug(const QString& text)
{
    QLoggingCategory* category = QLoggingCategory::defaultCategory();
    const bool wasEnabled = category->isDebugEnabled();
    category->setEnabled(QtDebugMsg, true);
    qDebug().nospace().noquote() << text;
    category->setEnabled(QtDebugMsg, wasEnabled);
}

/// Makes @p stream read and write UTF-8. A byte-order mark at the start of a file that is read
/// still wins, and none is written. (Codecs by name are gone from Qt 6.)
inline void useUtf8(QTextStream& stream)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    stream.setEncoding(QStringConverter::Utf8);
#else
    stream.setCodec("UTF-8");
#endif
}

/// Makes @p stream use the system's encoding. Without this Qt 6 takes UTF-8.
inline void useSystemEncoding(QTextStream& stream)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    stream.setEncoding(QStringConverter::System);
#else
    Q_UNUSED(stream)
#endif
}

/// Returns @p bytes as text, one character per byte (Latin-1), up to the first zero byte. Given the
/// QByteArray itself, Qt 6 would not stop there.
inline QString textFromBytes(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.constData());
}

/// Returns the request for @p url: redirects are not followed (Qt 6 would follow them), and a
/// compressed body may inflate to any size (Qt 6.2 and later would refuse one that grows past 10
/// MiB at a high ratio).
inline QNetworkRequest networkRequest(const QUrl& url)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
#if QT_VERSION >= QT_VERSION_CHECK(6, 2, 0)
    request.setDecompressedSafetyCheckThreshold(-1);
#endif
    return request;
}

} // namespace toolkit

#endif // UPDATER_TOOLKIT_H
