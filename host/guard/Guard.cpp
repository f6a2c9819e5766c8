// The order in which things happen in a guarded update.

#include "host/guard/Guard.h"

#include "host/guard/Clone.h"
#include "host/guard/Downloads.h"
#include "host/guard/Exchange.h"
#include "host/guard/Fetch.h"
#include "host/guard/Lock.h"
#include "host/guard/Names.h"
#include "host/guard/Processes.h"
#include "host/guard/Relay.h"
#include "host/guard/UpdaterRun.h"
#include "host/guard/Versions.h"
#include "manifest/ManifestText.h"
#include "manifest/Paths.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <algorithm>
#include <cstdio>

#include <unistd.h>

namespace {

constexpr qint64 longestVersionFile = 67108864;
constexpr qint64 longestSignature = 4096;
constexpr int answerSeconds = 30; // Then the user gets the application back.

/// The name by which the updater will look for the program in the version file: it reads its
/// command line one character per byte.
QString nameInVersionFile(const QString& name)
{
    return QString::fromLatin1(QFile::encodeName(name));
}

ProgramData releaseIn(const QByteArray& versionFile, const QString& name)
{
    ProgramData release;
    const bool isReadable =
        manifest::read(nameInVersionFile(name), manifest::textFromBytes(versionFile), release);
    return isReadable ? release : ProgramData();
}

/// The path of @p exe below @p directory, a canonical path; empty when it is elsewhere.
QByteArray nameBelow(const QByteArray& directory, const QString& exe)
{
    const QFileInfo info(exe);
    const QByteArray path = QFile::encodeName(QFileInfo(info.path()).canonicalFilePath() +
                                              QLatin1Char('/') + info.fileName());
    const QByteArray below = directory + '/';
    return path.startsWith(below) ? path.mid(below.size()) : QByteArray();
}

/// Without one the updater has nobody to show a message box to.
bool hasDisplay()
{
#ifdef __APPLE__
    return true;
#else
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if (platform.startsWith("offscreen") || platform.startsWith("minimal"))
        return false;
    return !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
#endif
}

} // namespace

Guard::Guard(const GuardOptions& options)
    : m_options(options)
    , m_directory(QFile::encodeName(QFileInfo(options.dir).canonicalFilePath()))
    , m_exe(QFileInfo(options.exe).absoluteFilePath())
    , m_exeName(nameBelow(m_directory, m_exe))
    , m_state(options.stateDir, m_directory)
    , m_workspace(m_directory)
{
    m_outcome.installed = options.installedVersion;
}

int Guard::run()
{
    // Whatever it started would have these rights, too. So it starts nothing.
    if (processes::hasElevatedRights())
        return end(Refused, "refused", QStringLiteral("not to be run with elevated rights"));

    QElapsedTimer timer;
    timer.start();
    DirectoryLock lock;
    const DirectoryLock::Result result = lock.take(m_directory);
    if (result == DirectoryLock::Busy)
        return end(Locked, "busy", QStringLiteral("another update of this installation runs"));
    if (m_options.waitFor > 0 && !processes::waitForEnd(m_options.waitFor, m_options.waitSeconds)) {
        const Status status =
            end(NotInstalled, "failed", QStringLiteral("the application still runs"));
        m_state.write(m_outcome);
        return status;
    }
    const Status status = result == DirectoryLock::Taken
                              ? update()
                              : end(Refused, "refused", fstree::systemError(m_directory));
    m_workspace.remove(m_keep);
    constexpr double millisecondsPerSecond = 1000;
    m_outcome.seconds = static_cast<double>(timer.elapsed()) / millisecondsPerSecond;
    m_state.write(m_outcome);
    if (m_options.relaunch)
        startProgram();
    return status;
}

Guard::Status Guard::update()
{
    m_workspace.recover();
    m_keep = Workspace::Downloads::Keep; // Those of an earlier run, until all is installed.
    if (!fetchRelease() || !isAcceptable())
        return end(Refused, "refused");

    Clone clone(m_directory, m_release);
    const QVector<ProgramFile> differences = clone.findDifferences();
    if (differences.isEmpty()) {
        m_keep = Workspace::Downloads::Remove;
        m_state.recordVersionFile(m_versionFile);
        return end(Done, "up to date");
    }
    QString& why = m_outcome.reason;
    if (!m_workspace.make(why) || !exchange::isPossible(m_workspace.path(), m_directory, why) ||
        !clone.make(m_workspace.clone(), why))
        return end(Refused, "refused");
    return install(clone, differences);
}

Guard::Status Guard::install(Clone& clone, const QVector<ProgramFile>& differences)
{
    const Status status = runUpdater(differences);
    if (status != Done)
        return status;
    m_keep = Workspace::Downloads::Remove;
    if (!finish(clone))
        return end(NotInstalled, "failed");
    m_state.recordVersionFile(m_versionFile);
    return end(Done, "installed");
}

/// Fetches the version file, and its signature if one is asked for.
bool Guard::fetchRelease()
{
    // They are two requests: a release may be published in between.
    constexpr int mostTries = 2;
    for (int tries = 0; tries < mostTries; ++tries) {
        const Fetched file = fetch(QUrl(m_options.url), longestVersionFile, answerSeconds);
        m_outcome.reason = file.failure;
        if (!file.failure.isEmpty())
            return false;
        m_versionFile = file.body;
        if (isSigned())
            return true;
    }
    return false;
}

bool Guard::isSigned()
{
    if (m_options.publicKeys.isEmpty())
        return true;
    const Fetched signature =
        fetch(QUrl(m_options.url + QStringLiteral(".sig")), longestSignature, answerSeconds);
    const bool isSigned = std::any_of(
        m_options.publicKeys.begin(), m_options.publicKeys.end(),
        [&](const guard::PublicKey& key) { return key.hasSigned(m_versionFile, signature.body); });
    if (!isSigned)
        m_outcome.reason = signature.failure.isEmpty()
                               ? QStringLiteral("no known key has signed the version file")
                               : QStringLiteral("the signature: ") + signature.failure;
    return isSigned;
}

bool Guard::isAcceptable()
{
    m_release = releaseIn(m_versionFile, m_options.name);
    m_outcome.published = m_release.version;
    if (m_release.version.isEmpty())
        m_outcome.reason = QStringLiteral("the version file has no release of this program");
    else if (!m_options.allowDowngrade &&
             versions::isLower(m_release.version, m_options.installedVersion))
        m_outcome.reason = QStringLiteral("the published version is lower");
    else
        m_outcome.reason = names::refusal(m_release, QFile::decodeName(m_directory));
    return m_outcome.reason.isEmpty();
}

/// Lets the updater work on the clone.
Guard::Status Guard::runUpdater(const QVector<ProgramFile>& differences)
{
    Downloads downloads({m_options.url, QFile::decodeName(m_workspace.downloads()), m_options.jobs,
                         m_options.stallSeconds},
                        differences);
    Relay relay(m_versionFile, m_release.files, downloads);
    UpdaterRun updater(m_options.updater, m_workspace.path());
    if (!relay.listen(m_outcome.reason))
        return end(NotInstalled, "failed");
    downloads.start();
    if (!updater.start(m_options.name, m_release.version, relay.url()) ||
        !waitForUpdater(updater, downloads))
        return end(NotInstalled, "failed", QStringLiteral("the updater does not start"));
    return resultOf(updater, downloads, relay);
}

/// @return False when it does not start.
bool Guard::waitForUpdater(UpdaterRun& updater, const Downloads& downloads)
{
    QEventLoop loop;
    QObject::connect(&updater, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop,
                     &QEventLoop::quit);
    QObject::connect(&updater, &QProcess::errorOccurred, &loop, [&](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            loop.quit();
    });
    QObject::connect(&downloads, &Downloads::settled, &updater, [&] {
        if (!downloads.failure().isEmpty() && !hasDisplay())
            updater.kill();
    });
    if (updater.error() == QProcess::FailedToStart)
        return false;
    loop.exec();
    return updater.error() != QProcess::FailedToStart;
}

Guard::Status Guard::resultOf(const UpdaterRun& updater, const Downloads& downloads,
                              const Relay& relay)
{
    m_outcome.downloaded = downloads.bytesDownloaded();
    m_outcome.reused = downloads.bytesReused();
    if (downloads.isDiskFull()) // The space is needed.
        m_keep = Workspace::Downloads::Remove;
    if (!downloads.failure().isEmpty())
        return end(NotInstalled, "failed", downloads.failure());
    if (updater.exitStatus() != QProcess::NormalExit || updater.exitCode() != 0)
        return end(NotInstalled, "failed",
                   QStringLiteral("the updater ended with the status %1").arg(updater.exitCode()));
    if (!relay.allWereFetched())
        return end(NotInstalled, "cancelled", QStringLiteral("the user has cancelled"));
    return Done;
}

/// Checks what the updater has made, and exchanges it with the installation.
bool Guard::finish(Clone& clone)
{
    QString& why = m_outcome.reason;
    if (!clone.isWhole(why) ||
        !clone.setModes([this](const QByteArray& name) { return isExecutable(name); }, why) ||
        !removeObsolete(clone))
        return false;
    const QByteArray exe = fstree::joined(m_workspace.clone(), m_exeName);
    if (!m_exeName.isEmpty() && ::access(exe.constData(), X_OK) != 0) {
        why = fstree::systemError(m_exeName);
        return false;
    }
    // The clone becomes the installation: until this process ends, its updates are locked out, too.
    DirectoryLock lock;
    if (lock.take(m_workspace.clone()) != DirectoryLock::Taken) {
        why = fstree::systemError(m_workspace.clone());
        return false;
    }
    if (!clone.catchUp(why) || !clone.exchange(why))
        return false;
    lock.keep();
    return true;
}

bool Guard::removeObsolete(Clone& clone)
{
    if (!m_options.removeObsolete)
        return true;
    const ProgramData earlier = releaseIn(m_state.recordedVersionFile(), m_options.name);
    const bool isInstalled =
        earlier.version.compare(m_options.installedVersion.trimmed(), Qt::CaseInsensitive) == 0;
    if (!isInstalled || !names::refusal(earlier, QFile::decodeName(m_directory)).isEmpty())
        return true;
    return clone.removeObsolete(earlier, m_outcome.reason);
}

bool Guard::isExecutable(const QByteArray& name) const
{
    const QString text = QFile::decodeName(name);
    return name == m_exeName ||
           std::any_of(m_options.executable.begin(), m_options.executable.end(),
                       [&](const QString& pattern) {
                           return paths::wildcard(pattern).match(text).hasMatch();
                       });
}

/// Notes how the update ended, and tells whoever reads the output what went wrong.
Guard::Status Guard::end(Status status, const char* outcome, const QString& reason)
{
    m_outcome.outcome = QLatin1String(outcome);
    if (!reason.isEmpty())
        m_outcome.reason = reason;
    if (status != Done)
        std::fprintf(stderr, "updater-guard: %s\n", qPrintable(m_outcome.reason));
    return status;
}

void Guard::startProgram() const
{
    if (!QFileInfo::exists(m_exe))
        return;
    QProcess::startDetached(m_exe, {}, QFileInfo(m_exe).path());
}
