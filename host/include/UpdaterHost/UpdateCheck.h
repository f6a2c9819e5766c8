// The host kit: what an application does around the updater (docs/integrating.md).
//
//   HostInfo info;
//   info.updater = "/Applications/Editor.app/Contents/MacOS/updater"; // and the other fields
//   auto* check = new UpdateCheck(info, this);
//   connect(check, &UpdateCheck::versionFound, this, [check] {
//       if (askUser() && check->startUpdate())
//           QCoreApplication::quit();
//   });
//   check->start();
#ifndef UPDATERHOST_UPDATECHECK_H
#define UPDATERHOST_UPDATECHECK_H

#include <QObject>
#include <QProcess>
#include <QSharedMemory>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>

/// What a host knows about itself and its updater.
struct HostInfo
{
    QString updater; ///< Path of the updater's executable.
    QString name;    ///< Program name, as published.
    QString version; ///< Installed version.
    QString baseDir; ///< Installation directory, as an absolute path.
    QString url;     ///< URL of the version file.
    QString exe;     ///< Executable to start after an update, as an absolute path.
};

/// Looks for a new version, and starts the update to it.
///
/// Each check ends with exactly one of versionFound(), upToDate() and failed(), emitted from the
/// event loop. The slot may start the next check or delete this object. Several objects can check
/// at the same time.
///
/// Each check has a shared-memory segment of its own, under a unique key, for the updater to report
/// into. The segment is removed when the check ends.
class UpdateCheck : public QObject
{
    Q_OBJECT

public:
    /// How long a check may take unless setTimeLimit() says otherwise, in milliseconds.
    static constexpr int defaultTimeLimit = 30000;

    explicit UpdateCheck(const HostInfo& info, QObject* parent = nullptr);

    /// Ends a check that still runs, and its updater; no signal is emitted.
    ~UpdateCheck() override;

    /// Ends the updater of a check that takes longer than @p milliseconds; failed() is emitted. The
    /// updater has no timeout of its own: it waits for as long as the connection stays open.
    void setTimeLimit(int milliseconds) { m_watchdog.setInterval(milliseconds); }
    int timeLimit() const { return m_watchdog.interval(); }

    /// Has @p accepts asked about each published version other than the installed one. When it
    /// returns false, failed() is emitted. The updater does not order versions. Use this to reject
    /// downgrades.
    void setAccepts(std::function<bool(const QString& version)> accepts);

    /// Starts a check. Gives the updater execute permission first where that is missing: an update
    /// that replaces the updater installs it without.
    /// @return False when a check is running already; that one continues.
    bool start();

    /// True from start() until one of the three signals is emitted.
    bool isRunning() const { return m_running; }

    /// Starts the update as a process of its own. The host should quit at once, so that its files
    /// can be replaced.
    ///
    /// With "updater-guard" beside the updater, the guard is started, and waits until the host has
    /// ended. Otherwise it is the updater. That reads its command line one character per byte, so
    /// an installation directory whose path is not ASCII is updated through a link in the temporary
    /// directory.
    /// @return False when the program could not be started or the link could not be made.
    bool startUpdate() const;

Q_SIGNALS:
    /// The published version is not the installed one; letter case does not matter.
    /// @param version   the published version
    /// @param required  true if the publisher marked the update as required
    /// @param changelog the release notes as plain text; empty when there are none
    void versionFound(const QString& version, bool required, const QString& changelog);

    /// The installed version is the published one.
    void upToDate();

    /// The published version could not be found out, or was not accepted.
    /// @param reason for a log: in English, not meant for users
    void failed(const QString& reason);

private:
    bool makeSegment();
    void updaterEnded(int exitCode, QProcess::ExitStatus status);
    bool readReport(QString& version, bool& required);
    void judge(const QString& version, bool required, const QString& changelog);
    void fail(const QString& reason);
    void conclude();

    const HostInfo m_info;
    std::function<bool(const QString& version)> m_accepts;
    std::unique_ptr<QSharedMemory> m_segment;
    QProcess m_updater{this}; // Children, to move with this object to another thread.
    QTimer m_watchdog{this};
    bool m_running = false;
    bool m_timedOut = false;
};

#endif // UPDATERHOST_UPDATECHECK_H
