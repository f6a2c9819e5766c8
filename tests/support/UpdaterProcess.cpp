#include "tests/support/UpdaterProcess.h"

#include <QRegularExpression>
#include <QTest>

UpdaterProcess::UpdaterProcess() : m_program(QStringLiteral(UPDATER_EXECUTABLE))
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.setProcessEnvironment(QProcessEnvironment::systemEnvironment());
}

UpdaterProcess::~UpdaterProcess()
{
    if (!isRunning())
        return;
    m_process.kill();
    m_process.waitForFinished();
}

void UpdaterProcess::setEnvironment(const QString& name, const QString& value)
{
    QProcessEnvironment environment = m_process.processEnvironment();
    environment.insert(name, value);
    m_process.setProcessEnvironment(environment);
}

void UpdaterProcess::start(const QStringList& options)
{
    QStringList command = m_wrapper;
    command << m_program << options;
    const QString program = command.takeFirst();
    m_output.clear();
    m_process.start(program, command);
    m_process.waitForStarted();
}

bool UpdaterProcess::waitForEnd(int milliseconds)
{
    return QTest::qWaitFor([this] { return !isRunning(); }, milliseconds);
}

int UpdaterProcess::run(const QStringList& options, int milliseconds)
{
    start(options);
    waitForEnd(milliseconds);
    return exitStatus();
}

int UpdaterProcess::exitStatus() const
{
    const bool ended = m_process.state() == QProcess::NotRunning &&
                       m_process.error() == QProcess::UnknownError &&
                       m_process.exitStatus() == QProcess::NormalExit;
    return ended ? m_process.exitCode() : -1;
}

int UpdaterProcess::endedBySignal() const
{
    const bool crashed = !isRunning() && m_process.exitStatus() == QProcess::CrashExit;
    return crashed ? m_process.exitCode() : 0;
}

QByteArray UpdaterProcess::output()
{
    m_output += m_process.readAll();
    static const QRegularExpression chatter(
        "^.*(propagateSizeHints|QSharedMemory::lock: already locked).*\n",
        QRegularExpression::MultilineOption);
    return QString::fromLocal8Bit(m_output).remove(chatter).toLocal8Bit();
}
