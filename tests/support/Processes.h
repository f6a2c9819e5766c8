// Looks at the processes of the machine.
#ifndef TESTS_SUPPORT_PROCESSES_H
#define TESTS_SUPPORT_PROCESSES_H

#include <QDir>
#include <QFile>
#include <QStringList>

namespace processes {

/// Returns the command lines, blanks between the words, of all running processes that mention
/// @p text. Needs /proc, and finds nothing where there is none.
inline QStringList mentioning(const QString& text)
{
    QStringList found;
    const QStringList ids = QDir("/proc").entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& id : ids) {
        QFile file("/proc/" + id + "/cmdline");
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QString commandLine = QString::fromUtf8(file.readAll().replace('\0', ' ')).trimmed();
        if (commandLine.contains(text))
            found.append(commandLine);
    }
    return found;
}

} // namespace processes

#endif // TESTS_SUPPORT_PROCESSES_H
