// The updater, started so that it works on the clone and talks to the relay alone.
//
//   UpdaterRun updater(options.updater, workspace.path());
//   updater.start("Editor", "2.0", relay.url());
//   // QProcess::finished, QProcess::errorOccurred
#ifndef HOST_GUARD_UPDATERRUN_H
#define HOST_GUARD_UPDATERRUN_H

#include <QByteArray>
#include <QProcess>
#include <QString>

class UpdaterRun : public QProcess
{
    Q_OBJECT

public:
    /// @param program the updater
    /// @param directory what the updater works in: it has "clone" and "tmp"
    UpdaterRun(const QString& program, const QByteArray& directory);

    /// Starts "updater -u", which fetches from @p url. On Linux the system ends it when this
    /// process ends. False when its directory cannot be written.
    bool start(const QString& name, const QString& publishedVersion, const QString& url);

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
protected:
    void setupChildProcess() override;
#endif

private:
    const qint64 m_guard;
};

#endif // HOST_GUARD_UPDATERRUN_H
