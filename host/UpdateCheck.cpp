// The host's side of a version check, and the start of an update.

#include <UpdaterHost/UpdateCheck.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

/// Room for a version of 253 characters; the report needs three bytes more than the version.
constexpr int segmentSize = 256;

/// Returns the changelog that the updater left for @p version, and removes its file.
QString takeChangelog(const QString& version)
{
    // The version comes from the server: refuse one that would leave the temporary directory.
    if (version.contains(QLatin1Char('/')))
        return QString();
    QFile file(
        QDir(QDir::tempPath())
            .filePath(QLatin1String("velmora_cl_") + version.trimmed() + QLatin1String(".dat")));
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    QString changelog = QString::fromUtf8(QByteArray::fromBase64(file.readAll()));
    file.remove();
    return changelog;
}

bool isAscii(const QString& text)
{
    return std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; });
}

/// Makes a link with an ASCII name to @p directory, in place of one that an earlier update left.
/// @return Its path, empty when there is none.
QString linkTo(const QString& directory)
{
    // The name is unique per user and directory. If another user owns that path, fail rather than
    // use their link.
    const QByteArray id = (QDir::homePath() + QLatin1Char('\n') + directory).toUtf8();
    const QString link =
        QDir(QDir::tempPath())
            .filePath(QLatin1String("updater-base-") +
                      QString::fromLatin1(
                          QCryptographicHash::hash(id, QCryptographicHash::Sha1).toHex()));
    QFile::remove(link);
    return isAscii(link) && QFile::link(directory, link) ? link : QString();
}

/// An update that brings a program, or replaces it, installs it without execute permission.
void makeExecutable(const QString& program)
{
    const QFileInfo file(program);
    if (file.isFile() && !file.isExecutable())
        QFile::setPermissions(program, file.permissions() | QFile::ExeOwner | QFile::ExeGroup |
                                           QFile::ExeOther);
}

/// Returns the path of the guard that is beside @p updater; empty when there is none.
QString guardBeside(const QString& updater)
{
    const QFileInfo guard(QFileInfo(updater).dir(), QStringLiteral("updater-guard"));
    return guard.isFile() ? guard.filePath() : QString();
}

QStringList guardArguments(const HostInfo& info)
{
    return {QStringLiteral("--name"),
            info.name,
            QStringLiteral("--dir"),
            info.baseDir,
            QStringLiteral("--version-installed"),
            info.version,
            QStringLiteral("--url"),
            info.url,
            QStringLiteral("--exe"),
            info.exe,
            QStringLiteral("--updater"),
            info.updater,
            QStringLiteral("--wait-for"),
            QString::number(QCoreApplication::applicationPid())};
}

} // namespace

UpdateCheck::UpdateCheck(const HostInfo& info, QObject* parent) : QObject(parent), m_info(info)
{
    m_watchdog.setSingleShot(true);
    setTimeLimit(defaultTimeLimit);
    connect(&m_watchdog, &QTimer::timeout, this, [this] {
        m_timedOut = true;
        m_updater.kill();
    });
    // The host's output is not the place for what the updater or Qt prints.
    m_updater.setStandardOutputFile(QProcess::nullDevice());
    m_updater.setStandardErrorFile(QProcess::nullDevice());
    // Queued, because a slot may restart or delete the QProcess, which must not happen while it is
    // emitting.
    connect(&m_updater, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &UpdateCheck::updaterEnded, Qt::QueuedConnection);
    connect(
        &m_updater, &QProcess::errorOccurred, this,
        [this](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart)
                fail(QStringLiteral("The updater does not start."));
        },
        Qt::QueuedConnection);
}

UpdateCheck::~UpdateCheck()
{
    m_updater.kill();
    m_updater.waitForFinished();
}

void UpdateCheck::setAccepts(std::function<bool(const QString& version)> accepts)
{
    m_accepts = std::move(accepts);
}

bool UpdateCheck::start()
{
    if (m_running)
        return false;
    m_running = true;
    m_timedOut = false;
    if (!makeSegment()) {
        QTimer::singleShot(0, this, [this] { fail(m_segment->errorString()); });
        return true;
    }
    makeExecutable(m_info.updater);
    m_watchdog.start();
    m_updater.start(m_info.updater, {QStringLiteral("-c"), QStringLiteral("-n"), m_info.name,
                                     QStringLiteral("-v"), m_info.version, QStringLiteral("-l"),
                                     m_info.url, QStringLiteral("-s"), m_segment->key()});
    return true;
}

bool UpdateCheck::startUpdate() const
{
    makeExecutable(m_info.updater);
    const QString guard = guardBeside(m_info.updater);
    if (!guard.isEmpty()) {
        makeExecutable(guard);
        return QProcess::startDetached(guard, guardArguments(m_info));
    }
    QString baseDir = m_info.baseDir;
    QString exe = m_info.exe;
    // The updater reads its command line one character per byte.
    if (!isAscii(baseDir)) {
        const QString directory = QDir::cleanPath(baseDir);
        baseDir = linkTo(directory);
        if (baseDir.isEmpty())
            return false;
        exe = QDir::cleanPath(exe);
        if (exe.startsWith(directory + QLatin1Char('/')))
            exe.replace(0, directory.size(), baseDir);
    }
    return QProcess::startDetached(
        m_info.updater, {QStringLiteral("-u"), QStringLiteral("-n"), m_info.name,
                         QStringLiteral("-d"), baseDir, QStringLiteral("-v"), m_info.version,
                         QStringLiteral("-l"), m_info.url, QStringLiteral("-x"), exe});
}

/// Makes a segment full of zeros, under a new key.
bool UpdateCheck::makeSegment()
{
    // On Unix the system derives a short number from the key, so two keys can collide. If that
    // happens, try another key.
    constexpr int mostTries = 5;
    for (int tries = 0; tries < mostTries; ++tries) {
        m_segment = std::make_unique<QSharedMemory>(
            QLatin1String("updater-host-") + QUuid::createUuid().toString(QUuid::WithoutBraces));
        if (m_segment->create(segmentSize)) {
            std::memset(m_segment->data(), 0, static_cast<size_t>(m_segment->size()));
            return true;
        }
        if (m_segment->error() != QSharedMemory::AlreadyExists)
            return false;
    }
    return false;
}

void UpdateCheck::updaterEnded(int exitCode, QProcess::ExitStatus status)
{
    if (status != QProcess::NormalExit || exitCode != 0) {
        fail(m_timedOut ? QStringLiteral("The check took too long.")
                        : QStringLiteral("The check did not finish."));
        return;
    }
    QString version;
    bool required = false;
    // An unreadable version file shows as an empty version, and the exit status is 0 all the same.
    if (!readReport(version, required)) {
        fail(QStringLiteral("The published version could not be read."));
        return;
    }
    // Taken even if the version is not accepted, so that no file is left.
    judge(version, required, takeChangelog(version));
}

bool UpdateCheck::readReport(QString& version, bool& required)
{
    if (!m_segment->lock())
        return false;
    const QByteArray bytes(static_cast<const char*>(m_segment->constData()), segmentSize);
    m_segment->unlock();
    const auto length = bytes.indexOf('\0');
    if (length <= 0 || length + 1 >= bytes.size())
        return false;
    version = QString::fromLatin1(bytes.left(length));
    required = bytes.at(length + 1) == '1';
    return true;
}

void UpdateCheck::judge(const QString& version, bool required, const QString& changelog)
{
    if (version.compare(m_info.version, Qt::CaseInsensitive) == 0) {
        conclude();
        Q_EMIT upToDate();
        return;
    }
    if (m_accepts && !m_accepts(version)) {
        fail(QStringLiteral("Version %1 is not accepted.").arg(version));
        return;
    }
    conclude();
    Q_EMIT versionFound(version, required, changelog);
}

void UpdateCheck::fail(const QString& reason)
{
    conclude();
    Q_EMIT failed(reason);
}

/// Ends the check. Called before the signal with the result is emitted.
void UpdateCheck::conclude()
{
    m_watchdog.stop();
    m_segment.reset();
    m_running = false;
}
