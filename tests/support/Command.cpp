#include "tests/support/Command.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QTest>

namespace {

constexpr int timeLimit = 120000;

/// Runs @p command in @p process.
/// @return Its exit status; -1 when it did not start, crashed or took too long.
int run(QProcess& process, QStringList command, const QMap<QString, QString>& variables,
        const QString& directory)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto variable = variables.begin(); variable != variables.end(); ++variable)
        environment.insert(variable.key(), variable.value());
    const QString program = command.takeFirst();

    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(directory);
    process.start(program, command);
    const bool ended =
        QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, timeLimit);
    if (!ended) {
        process.kill();
        process.waitForFinished();
    }
    const bool inOrder = ended && process.error() == QProcess::UnknownError &&
                         process.exitStatus() == QProcess::NormalExit;
    return inOrder ? process.exitCode() : -1;
}

[[noreturn]] void fail(const QStringList& command, const QString& output)
{
    qFatal("test fixture: %s: %s", qPrintable(command.join(' ')), qPrintable(output));
}

} // namespace

CommandResult runCommand(const QStringList& command, const QMap<QString, QString>& variables,
                         const QString& directory)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    CommandResult result;
    result.status = run(process, command, variables, directory);
    result.output = QString::fromLocal8Bit(process.readAll());
    return result;
}

QByteArray outputOf(const QStringList& command, const QMap<QString, QString>& variables,
                    const QString& directory)
{
    QProcess process;
    if (run(process, command, variables, directory) != 0)
        fail(command, QString::fromLocal8Bit(process.readAllStandardError()));
    return process.readAllStandardOutput();
}

void mustRun(const QStringList& command)
{
    const CommandResult result = runCommand(command);
    if (result.status != 0)
        fail(command, result.output);
}
