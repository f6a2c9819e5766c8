#include "tests/support/Processes.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>

namespace {

/// What /proc says of the process @p id; nothing when it has ended.
QByteArray about(const QString& id, const QString& what)
{
    QFile file("/proc/" + id + '/' + what);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString parentOf(const QString& id)
{
    // "id (name) state parent ...", and the name may contain anything.
    const QByteArray status = about(id, "stat");
    return QString::fromLatin1(status.mid(status.lastIndexOf(')') + 2).split(' ').value(1));
}

} // namespace

namespace processes {

QStringList mentioning(const QString& text)
{
    QHash<QString, QString> commandLines;
    const QStringList ids = QDir("/proc").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& id : ids) {
        const QByteArray words = about(id, "cmdline").replace('\0', ' ');
        const QString commandLine = QString::fromUtf8(words).trimmed();
        if (commandLine.contains(text))
            commandLines.insert(id, commandLine);
    }
    QStringList found;
    for (auto process = commandLines.begin(); process != commandLines.end(); ++process) {
        if (commandLines.value(parentOf(process.key())) != process.value())
            found.append(process.value());
    }
    return found;
}

QList<qint64> children()
{
    const QString own = QString::number(QCoreApplication::applicationPid());
    QList<qint64> found;
    const QStringList ids = QDir("/proc").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& id : ids) {
        if (parentOf(id) == own)
            found.append(id.toLongLong());
    }
    return found;
}

} // namespace processes
