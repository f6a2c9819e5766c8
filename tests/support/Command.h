// Runs a program and says how it ended.
//
//   const CommandResult result = runCommand({"openssl", "verify", path}, {{"LANG", "C"}});
//   QVERIFY2(result.status == 0, qPrintable(result.output));
#ifndef TESTS_SUPPORT_COMMAND_H
#define TESTS_SUPPORT_COMMAND_H

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

struct CommandResult
{
    int status = -1; ///< -1 when the program did not start, crashed or took too long.
    QString output;  ///< Standard output and standard error, as they came.
};

/// Runs @p command, a program and its arguments, with @p variables in addition to the test's own
/// environment, in @p directory or else in the test's own. Waiting runs the event loop, so that
/// servers in the test's own process answer. After two minutes the program is killed.
CommandResult runCommand(const QStringList& command, const QMap<QString, QString>& variables = {},
                         const QString& directory = QString());

/// Returns what @p command writes to standard output, byte for byte. The rest is as above, but the
/// test program ends when the command fails.
QByteArray outputOf(const QStringList& command, const QMap<QString, QString>& variables = {},
                    const QString& directory = QString());

/// Runs @p command; the test program ends when it fails.
void mustRun(const QStringList& command);

#endif // TESTS_SUPPORT_COMMAND_H
