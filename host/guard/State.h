// What the guard remembers of an installation: how the last update ended, for the host, and the
// version file of the release that is installed.
//
//   State state(QString(), "/opt/editor"); // In the default directory.
//   state.write({"installed", "1.0", "2.0"});
//
// Nothing here can fail an update: what cannot be read is as if it were not there, and what cannot
// be written is not.
#ifndef HOST_GUARD_STATE_H
#define HOST_GUARD_STATE_H

#include <QByteArray>
#include <QString>

/// How an update ended.
struct Outcome
{
    QString outcome;   ///< "installed", "up to date", "cancelled", "failed", "refused".
    QString installed; ///< The version that the host had.
    QString published; ///< Empty when no version file came.
    QString reason;    ///< For a log; empty when all went well.
    qint64 downloaded = 0;
    qint64 reused = 0;
    double seconds = 0;
};

class State
{
public:
    /// @param stateDirectory empty for the default, "updater-guard/" and the SHA-1 of @p directory
    ///                       below the user's data directory
    /// @param directory      the installation, by its canonical path
    State(const QString& stateDirectory, const QByteArray& directory);

    /// Replaces "last-update.json".
    void write(const Outcome& outcome) const;

    /// The version file that was recorded last; empty when there is none.
    QByteArray recordedVersionFile() const;

    /// Records the version file of the release that is installed now.
    void recordVersionFile(const QByteArray& versionFile) const;

private:
    void save(const QString& name, const QByteArray& contents) const;

    const QString m_directory;
};

#endif // HOST_GUARD_STATE_H
