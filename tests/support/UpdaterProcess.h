// The updater as other programs meet it: a process with options, output and an exit status.
#ifndef TESTS_SUPPORT_UPDATERPROCESS_H
#define TESTS_SUPPORT_UPDATERPROCESS_H

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

/// One start of the real executable. Waiting runs the event loop, so that servers in the test's own
/// process go on working. A process that still runs at the end of the scope is killed.
class UpdaterProcess
{
public:
    UpdaterProcess();
    ~UpdaterProcess();
    Q_DISABLE_COPY(UpdaterProcess)

    /// Sets an environment variable of the process; the rest is the test's own environment.
    void setEnvironment(const QString& name, const QString& value);

    /// Leaves the process with nothing but what setEnvironment() sets from now on, which has to be
    /// something.
    void clearEnvironment() { m_process.setProcessEnvironment(QProcessEnvironment()); }

    /// Makes it a start of another program that comes with the updater.
    void setProgram(const QString& path) { m_program = path; }

    /// Starts the process under @p command, such as setpriv with its options: the path of the
    /// updater and its options are appended.
    void setWrapper(const QStringList& command) { m_wrapper = command; }

    void setWorkingDirectory(const QString& dir) { m_process.setWorkingDirectory(dir); }

    /// Starts the updater with @p options and returns at once.
    void start(const QStringList& options);

    /// Waits until the process has ended.
    /// @return False when it has not within @p milliseconds.
    bool waitForEnd(int milliseconds = 30000);

    /// Starts the updater with @p options and waits for its end.
    /// @return Its exit status; -1 when it did not start, crashed or did not end in time.
    int run(const QStringList& options, int milliseconds = 30000);

    /// Ends the process at once (SIGKILL).
    void kill() { m_process.kill(); }

    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }

    /// The exit status; -1 when the process still runs, did not start, or crashed.
    int exitStatus() const;

    /// The number of the signal that ended the process; 0 when none did.
    int endedBySignal() const;

    /// What the process has written to standard output and standard error, without the lines that
    /// Qt prints on its own account.
    QByteArray output();

    qint64 pid() const { return m_process.processId(); }

private:
    QString m_program;
    QStringList m_wrapper;
    QProcess m_process;
    QByteArray m_output;
};

#endif // TESTS_SUPPORT_UPDATERPROCESS_H
