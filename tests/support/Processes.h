// Looks at the processes of the machine.
#ifndef TESTS_SUPPORT_PROCESSES_H
#define TESTS_SUPPORT_PROCESSES_H

#include <QString>
#include <QStringList>

namespace processes {

/// Returns the command lines, blanks between the words, of all running processes that mention
/// @p text. A child that still has the command line of its parent is not counted: it is a shell on
/// its way to become another program. Needs /proc, and finds nothing where there is none.
QStringList mentioning(const QString& text);

} // namespace processes

#endif // TESTS_SUPPORT_PROCESSES_H
