#include "tests/support/FakeProgram.h"

#include <QFile>
#include <QTest>

namespace {

constexpr int patience = 30000;

} // namespace

QByteArray shellScript(const QByteArray& commands)
{
    return "#!/bin/sh\n" + commands;
}

void writeScript(const QString& path, const QByteArray& commands)
{
    files::writeExecutable(path, shellScript(commands));
}

QStringList FakeProgram::arguments() const
{
    const QString record = *this / "arguments";
    if (!QTest::qWaitFor([&] { return QFile::exists(record); }, patience))
        return {};
    const QString words = QString::fromUtf8(files::read(record)).trimmed();
    QFile::remove(record);
    return words.split('|');
}
