#include "tests/support/Command.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QTest>

namespace {

constexpr int timeLimit = 120000;

} // namespace

CommandResult runCommand(QStringList command, const QMap<QString, QString>& variables,
                         const QString& directory)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto variable = variables.begin(); variable != variables.end(); ++variable)
        environment.insert(variable.key(), variable.value());
    const QString program = command.takeFirst();

    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setWorkingDirectory(directory);
    process.start(program, command);
    const bool ended =
        QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, timeLimit);
    if (!ended) {
        process.kill();
        process.waitForFinished();
    }
    CommandResult result;
    if (ended && process.error() == QProcess::UnknownError &&
        process.exitStatus() == QProcess::NormalExit)
        result.status = process.exitCode();
    result.output = QString::fromLocal8Bit(process.readAll());
    return result;
}

void mustRun(const QStringList& command)
{
    const CommandResult result = runCommand(command);
    if (result.status != 0)
        qFatal("test fixture: %s: %s", qPrintable(command.join(' ')), qPrintable(result.output));
}
