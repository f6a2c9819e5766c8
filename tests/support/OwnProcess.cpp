#include "tests/support/OwnProcess.h"

#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTest>

namespace {

const char* const marker = "UPDATER_TEST_OWN_PROCESS";

} // namespace

namespace ownprocess {

bool isOne()
{
    return qEnvironmentVariableIsSet(marker);
}

QByteArray failureOfCurrentRow()
{
    QString test = QString::fromLatin1(QTest::currentTestFunction());
    if (QTest::currentDataTag())
        test += QLatin1Char(':') + QString::fromLatin1(QTest::currentDataTag());

    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(marker), QStringLiteral("1"));
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QCoreApplication::applicationFilePath(), {test});
    const bool ended = process.waitForFinished(120000);
    if (!ended) {
        process.kill();
        process.waitForFinished();
    }
    const QByteArray output = process.readAll();
    const bool passed = ended && process.exitStatus() == QProcess::NormalExit &&
                        process.exitCode() == 0 && output.contains("3 passed, 0 failed");
    return passed ? QByteArray() : "In its own process:\n" + output;
}

} // namespace ownprocess
