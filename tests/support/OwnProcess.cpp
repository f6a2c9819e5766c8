#include "tests/support/OwnProcess.h"

#include "tests/support/Command.h"

#include <QCoreApplication>
#include <QTest>

namespace {

const char* const marker = "UPDATER_TEST_OWN_PROCESS";

} // namespace

namespace ownprocess {

bool isOne()
{
    return qEnvironmentVariableIsSet(marker);
}

QByteArray failureOf(const QString& test, const QMap<QString, QString>& variables,
                     const QStringList& wrapper)
{
    QMap<QString, QString> all = variables;
    all.insert(QString::fromLatin1(marker), QStringLiteral("1"));
    const CommandResult result =
        runCommand(wrapper + QStringList{QCoreApplication::applicationFilePath(), test}, all);
    const bool passed = result.status == 0 && result.output.contains("3 passed, 0 failed");
    return passed ? QByteArray() : "In its own process:\n" + result.output.toLocal8Bit();
}

QByteArray failureOfCurrentRow()
{
    QString test = QString::fromLatin1(QTest::currentTestFunction());
    if (QTest::currentDataTag())
        test += QLatin1Char(':') + QString::fromLatin1(QTest::currentDataTag());
    return failureOf(test);
}

} // namespace ownprocess
