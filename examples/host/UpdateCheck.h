// The host's side of a version check: what an application does around "updater -c".
#ifndef EXAMPLES_HOST_UPDATECHECK_H
#define EXAMPLES_HOST_UPDATECHECK_H

#include <QObject>
#include <QProcess>
#include <QSharedMemory>
#include <QString>

/// What a host knows about itself and its updater.
struct HostInfo
{
    QString updater; ///< Path of the updater's executable.
    QString name;    ///< Program name, as published.
    QString version; ///< Installed version.
    QString baseDir; ///< Installation directory.
    QString url;     ///< URL of the version file.
    QString exe;     ///< Executable to start after an update.
};

/// Runs one check and tells how it ended, with exactly one of its signals.
///
/// Owns the shared-memory segment that the updater reports into. The segment lives as long as this
/// object.
class UpdateCheck : public QObject
{
    Q_OBJECT

public:
    explicit UpdateCheck(const HostInfo& info, QObject* parent = nullptr);

    /// Makes the segment and starts the updater.
    void start();

    /// Starts the update of @p info as a process of its own. The host should quit at once, so that
    /// its files can be replaced.
    /// @return False when the updater could not be started.
    static bool startUpdate(const HostInfo& info);

Q_SIGNALS:
    /// Another version is published.
    /// @param changelog the release notes; empty when there are none
    void versionFound(const QString& version, bool required, const QString& changelog);
    void upToDate();
    void failed(const QString& reason);

private:
    void checkEnded(int exitCode, QProcess::ExitStatus status);
    bool readReport(QString& version, bool& required);

    const HostInfo m_info;
    QSharedMemory m_segment;
    QProcess m_updater;
};

#endif // EXAMPLES_HOST_UPDATECHECK_H
