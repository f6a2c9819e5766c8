// One guarded update, from the lock to the start of the application.
//
//   GuardOptions options;
//   ...
//   return Guard(options).run();
#ifndef HOST_GUARD_GUARD_H
#define HOST_GUARD_GUARD_H

#include "host/guard/GuardOptions.h"
#include "host/guard/State.h"
#include "host/guard/Workspace.h"
#include "manifest/ProgramData.h"

#include <QByteArray>
#include <QString>
#include <QVector>

class Clone;
class Downloads;
class Relay;
class UpdaterRun;

class Guard
{
public:
    explicit Guard(const GuardOptions& options);

    /// Runs the update, in event loops of its own. Returns the exit status of updater-guard.
    int run();

private:
    enum Status { Done = 0, NotInstalled = 1, Locked = 3, Refused = 4 };

    Status update();
    Status install(Clone& clone, const QVector<ProgramFile>& differences);
    bool fetchRelease();
    bool isSigned();
    bool isAcceptable();
    Status runUpdater(const QVector<ProgramFile>& differences);
    bool waitForUpdater(UpdaterRun& updater, const Downloads& downloads);
    Status resultOf(const UpdaterRun& updater, const Downloads& downloads, const Relay& relay);
    bool finish(Clone& clone);
    bool removeObsolete(Clone& clone);
    bool isExecutable(const QByteArray& name) const;
    Status end(Status status, const char* outcome, const QString& reason = QString());
    void startProgram() const;

    const GuardOptions m_options;
    const QByteArray m_directory; ///< The installation, by its canonical path.
    const QString m_exe;          ///< What is started in the end, by its absolute path.
    const QByteArray m_exeName;   ///< The same below the installation; empty when it is not there.
    const State m_state;
    Workspace m_workspace;
    QByteArray m_versionFile;
    ProgramData m_release;
    Outcome m_outcome;
    Workspace::Downloads m_keep = Workspace::Downloads::Remove;
};

#endif // HOST_GUARD_GUARD_H
