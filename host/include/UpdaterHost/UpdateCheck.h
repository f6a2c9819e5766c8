// The host kit: what an application does around the updater (docs/host-kit.md).
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
/// A check that start() begins tells how it ended with exactly one of the signals versionFound(),
/// upToDate() and failed(), always from the event loop. Who hears it may start the next check or
/// delete this object. Several objects do not get in each other's way.
///
/// Each check has a shared-memory segment of its own, under a key that nobody else has, for the
/// updater to report into. It goes as the check ends.
class UpdateCheck : public QObject
{
    Q_OBJECT

public:
    /// How long a check may take unless setTimeLimit() says otherwise, in milliseconds.
    static constexpr int defaultTimeLimit = 30000;

    explicit UpdateCheck(const HostInfo& info, QObject* parent = nullptr);

    /// Ends a check that still runs; it tells nothing.
    ~UpdateCheck() override;

    /// Ends the updater of a check that takes longer than @p milliseconds: the check has failed.
    /// The updater itself waits for a silent server as long as that keeps the connection.
    void setTimeLimit(int milliseconds) { m_watchdog.setInterval(milliseconds); }
    int timeLimit() const { return m_watchdog.interval(); }

    /// Has @p accepts asked about each version that is published and not the installed one. When it
    /// returns false, the check has failed. The updater knows no order of versions: a host that
    /// does can so refuse a lower one.
    void setAccepts(std::function<bool(const QString& version)> accepts);

    /// Starts a check. An updater that may not be executed gets the permission first: an update
    /// that brought it has left it without.
    /// @return False when one runs already, which goes on.
    bool start();

    /// True from start() until one of the signals tells the result.
    bool isRunning() const { return m_running; }

    /// Starts the update as a process of its own. The host should quit at once, so that its files
    /// can be replaced. An installation directory whose path is not ASCII is updated through a link
    /// in the temporary directory, as the updater reads its command line one character per byte.
    /// @return False when the updater could not be started, or the link not be made.
    bool startUpdate() const;

Q_SIGNALS:
    /// A version is published that is not the installed one, in any case of letters.
    /// @param required the publisher wants nobody to stay behind
    /// @param changelog what is new, as plain text; empty when the publisher does not say
    void versionFound(const QString& version, bool required, const QString& changelog);

    /// The installed version is the published one.
    void upToDate();

    /// The published version is not known, or not accepted.
    /// @param reason for the log: in English, and not for users
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
