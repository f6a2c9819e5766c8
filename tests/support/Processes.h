// Looks at the processes of the machine.
#ifndef TESTS_SUPPORT_PROCESSES_H
#define TESTS_SUPPORT_PROCESSES_H

#include <QList>
#include <QString>
#include <QStringList>

namespace processes {

/// Returns the command lines, with spaces between the words, of all running processes that mention
/// @p text. A child that still has the command line of its parent is not counted: it is a shell on
/// its way to become another program. Needs /proc, and finds nothing where there is none.
QStringList mentioning(const QString& text);

/// Returns the process ids of the children of this process, including those that have ended and
/// that nobody has waited for. Needs /proc.
QList<qint64> children();

} // namespace processes

#endif // TESTS_SUPPORT_PROCESSES_H
