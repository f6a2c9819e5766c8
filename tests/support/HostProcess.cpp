#include "tests/support/HostProcess.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSharedMemory>
#include <QSystemSemaphore>

namespace {

/// How long the host may take for an answer, in milliseconds.
constexpr int patience = 15000;

} // namespace

HostProcess::HostProcess(int size, const QString& executable)
    : m_executable(executable.isEmpty() ? QStringLiteral(SHM_HOST_EXECUTABLE) : executable)
{
    // The system derives a short number from the key, so now and then two keys share one.
    constexpr int mostTries = 5;
    for (int tries = 0; tries < mostTries; ++tries) {
        m_key = unusedKey();
        if (start({m_key, QString::number(size)}))
            return;
    }
    qFatal("test fixture: cannot start a host with a segment of %d bytes", size);
}

HostProcess::HostProcess(const Key& key)
    : m_executable(QStringLiteral(SHM_HOST_EXECUTABLE)), m_key(key.text), m_ownsSegment(false)
{
    if (!start({m_key}))
        qFatal("test fixture: cannot attach to the segment of a host");
}

HostProcess::~HostProcess()
{
    if (m_process.state() != QProcess::NotRunning && !quit())
        kill();
    if (m_killed && m_ownsSegment)
        removeWhatIsLeft();
}

void HostProcess::beginLock()
{
    m_process.write("lock\n");
    m_process.waitForBytesWritten(patience);
}

bool HostProcess::quit()
{
    m_process.write("quit\n");
    m_process.closeWriteChannel();
    return m_process.waitForFinished(patience) && m_process.exitStatus() == QProcess::NormalExit;
}

void HostProcess::kill()
{
    m_process.kill();
    m_process.waitForFinished();
    m_killed = true;
}

QString HostProcess::unusedKey()
{
    static int count = 0;
    return QStringLiteral("updater-test-%1-%2")
        .arg(QCoreApplication::applicationPid())
        .arg(++count);
}

bool HostProcess::segmentExists(const QString& key)
{
    QSharedMemory segment(key);
    return segment.attach(QSharedMemory::ReadOnly);
}

QByteArray HostProcess::reported(const QByteArray& version, bool required, int size)
{
    const QByteArray report = version + '\0' + (required ? '1' : '0');
    return report.leftJustified(qMax(size, static_cast<int>(report.size())), '\0');
}

bool HostProcess::start(const QStringList& arguments)
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(m_executable, arguments);
    if (readLine() == "ready")
        return true;
    m_process.waitForFinished();
    return false;
}

QByteArray HostProcess::ask(const QByteArray& command)
{
    m_process.write(command + '\n');
    return readLine();
}

QByteArray HostProcess::readLine()
{
    QElapsedTimer waited;
    waited.start();
    while (!m_process.canReadLine()) {
        const int left = patience - static_cast<int>(waited.elapsed());
        if (left <= 0 || !m_process.waitForReadyRead(left))
            return QByteArray();
    }
    return m_process.readLine().trimmed();
}

void HostProcess::removeWhatIsLeft() const
{
    // A segment is removed with its last user, a semaphore by an object that claims to have made
    // it.
    const QSystemSemaphore semaphore(m_key, 1, QSystemSemaphore::Create);
    segmentExists(m_key);
}
