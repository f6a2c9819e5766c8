// The host's side of a version check.

#include "examples/host/UpdateCheck.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <cstring>

namespace {

/// Room for a version of 253 characters; the report needs three bytes more than the version.
constexpr int segmentSize = 256;

/// Returns the changelog that the updater left for @p version, and removes its file.
QString takeChangelog(const QString& version)
{
    QFile file(
        QDir(QDir::tempPath())
            .filePath(QLatin1String("velmora_cl_") + version.trimmed() + QLatin1String(".dat")));
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    QString changelog = QString::fromUtf8(QByteArray::fromBase64(file.readAll()));
    file.remove();
    return changelog;
}

} // namespace

UpdateCheck::UpdateCheck(const HostInfo& info, QObject* parent)
    : QObject(parent)
    , m_info(info)
    // A key of this process's own: two running hosts must not read each other's reports.
    , m_segment(QStringLiteral("%1-%2").arg(info.name).arg(QCoreApplication::applicationPid()))
{
    connect(&m_updater, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &UpdateCheck::checkEnded);
    connect(&m_updater, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            Q_EMIT failed(QStringLiteral("The updater does not start."));
    });
}

void UpdateCheck::start()
{
    if (!m_segment.isAttached() && !m_segment.create(segmentSize)) {
        Q_EMIT failed(m_segment.errorString());
        return;
    }
    m_segment.lock();
    std::memset(m_segment.data(), 0, static_cast<size_t>(m_segment.size()));
    m_segment.unlock();
    m_updater.start(m_info.updater, {QStringLiteral("-c"), QStringLiteral("-n"), m_info.name,
                                     QStringLiteral("-v"), m_info.version, QStringLiteral("-l"),
                                     m_info.url, QStringLiteral("-s"), m_segment.key()});
}

bool UpdateCheck::startUpdate(const HostInfo& info)
{
    return QProcess::startDetached(
        info.updater, {QStringLiteral("-u"), QStringLiteral("-n"), info.name, QStringLiteral("-d"),
                       info.baseDir, QStringLiteral("-v"), info.version, QStringLiteral("-l"),
                       info.url, QStringLiteral("-x"), info.exe});
}

void UpdateCheck::checkEnded(int exitCode, QProcess::ExitStatus status)
{
    if (status != QProcess::NormalExit || exitCode != 0) {
        Q_EMIT failed(QStringLiteral("The check did not finish."));
        return;
    }
    QString version;
    bool required = false;
    // An unreadable version file shows as an empty version, and the exit status is 0 all the same.
    if (!readReport(version, required)) {
        Q_EMIT failed(QStringLiteral("The published version could not be read."));
        return;
    }
    const QString changelog = takeChangelog(version);
    if (version.compare(m_info.version, Qt::CaseInsensitive) == 0)
        Q_EMIT upToDate();
    else
        Q_EMIT versionFound(version, required, changelog);
}

bool UpdateCheck::readReport(QString& version, bool& required)
{
    m_segment.lock();
    const QByteArray bytes(static_cast<const char*>(m_segment.constData()), segmentSize);
    m_segment.unlock();
    const auto length = bytes.indexOf('\0');
    if (length <= 0 || length + 1 >= bytes.size())
        return false;
    version = QString::fromLatin1(bytes.left(length));
    required = bytes.at(length + 1) == '1';
    return true;
}
