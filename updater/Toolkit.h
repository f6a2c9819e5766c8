// Every line that is here because of the toolkit's version, and nothing else.
//
// The program was first built on Qt 4; hosts and release scripts rely on what it did there. Each
// function pins one outcome that Qt 5.15 or 6 would change, and says what the change is.
#ifndef UPDATER_TOOLKIT_H
#define UPDATER_TOOLKIT_H

#include <QByteArray>
#include <QDebug>
#include <QNetworkRequest>
#include <QString>
#include <QTextStream>
#include <QUrl>

namespace toolkit {

/// Sends @p text to the message handler as one debug message, to the letter.
///
/// Left to itself the debug stream of Qt 5 and 6 drops a blank at the end and escapes quotes and
/// backslashes inside a string; Qt 4 did neither.
inline void debug(const QString& text)
{
    qDebug().nospace().noquote() << text;
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

/// Makes @p stream use the system's encoding: what Qt 4 and 5 do when nothing is set, where Qt 6
/// takes UTF-8.
inline void useSystemEncoding(QTextStream& stream)
{
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    stream.setEncoding(QStringConverter::System);
#else
    Q_UNUSED(stream)
#endif
}

/// Returns @p bytes as text, one character per byte (Latin-1), up to the first zero byte. Qt 4's
/// conversion stopped there; that of Qt 6 does not.
inline QString textFromBytes(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.constData());
}

/// Returns the request for @p url, with the transfer rules of Qt 4: redirects are not followed
/// (Qt 6 follows them), and a compressed body may inflate to any size (Qt 6.2 and later refuse one
/// that grows past 10 MiB at a high ratio).
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
