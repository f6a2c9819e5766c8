// What makes file operations fail: permission bits that count, also for root, and a process that
// cannot open anything.
#ifndef TESTS_SUPPORT_RESTRICTIONS_H
#define TESTS_SUPPORT_RESTRICTIONS_H

#include <QString>
#include <QStringList>

#include <optional>

/// Makes the permission bits of files count for the calling thread until the end of the scope: root
/// gives up its override (Linux). Nothing changes for an ordinary user. Calls that only ask for the
/// permission, such as QFileInfo::isReadable(), still get root's answer.
class EnforcedPermissions
{
public:
    EnforcedPermissions();
    ~EnforcedPermissions();
    Q_DISABLE_COPY(EnforcedPermissions)

    /// False where the override cannot be given up: the test has to be skipped.
    bool active() const { return m_active; }

private:
    bool m_active = false;
    bool m_dropped = false; ///< The override is to be taken back at the end.
};

/// Returns the command (see UpdaterProcess::setWrapper()) under which root lacks @p capabilities,
/// which have setpriv's names, such as "ipc_owner".
QStringList commandWithout(const QStringList& capabilities);

/// Returns the command (see UpdaterProcess::setWrapper()) under which the permission bits of files
/// count for the updater: empty for an ordinary user, setpriv with its options for root. Nothing
/// where that is impossible: the test has to be skipped.
std::optional<QStringList> commandUnderPermissions();

/// The message with which tests are skipped that need one of the above.
#define NO_PERMISSIONS "this user overrides file permissions and cannot give that up"

/// Sets the permission bits of a file or directory until the end of the scope, so that what is
/// locked can be removed afterwards.
class ScopedMode
{
public:
    ScopedMode(const QString& path, unsigned mode);
    ~ScopedMode();
    Q_DISABLE_COPY(ScopedMode)

private:
    const QString m_path;
    const unsigned m_previous;
};

/// Until the end of the scope the process has no file descriptor left: files can be looked at and
/// removed, but neither files nor directories can be opened.
class NoDescriptorsLeft
{
public:
    NoDescriptorsLeft();
    ~NoDescriptorsLeft();
    Q_DISABLE_COPY(NoDescriptorsLeft)

private:
    unsigned long long m_previous;
};

#endif // TESTS_SUPPORT_RESTRICTIONS_H
