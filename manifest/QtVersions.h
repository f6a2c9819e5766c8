// What QtCore does differently from version to version. Requests have a header of their own,
// updater/Requests.h.
//
// Each function keeps one outcome that hosts and release scripts rely on, and says what Qt would do
// without it.
//
//   QTextStream stream(&file);
//   qtversions::useUtf8(stream);
#ifndef MANIFEST_QTVERSIONS_H
#define MANIFEST_QTVERSIONS_H

#include <QDebug>
#include <QLoggingCategory>
#include <QString>
#include <QTextStream>

namespace qtversions {

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

} // namespace qtversions

#endif // MANIFEST_QTVERSIONS_H
