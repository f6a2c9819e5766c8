// The host application's side of the report: a process that owns a shared-memory segment.
#ifndef TESTS_SUPPORT_HOSTPROCESS_H
#define TESTS_SUPPORT_HOSTPROCESS_H

#include <QByteArray>
#include <QProcess>
#include <QString>

/// Starts a host whose segment has a given size, filled with the byte 0xAA. The host and its
/// segment are gone at the end of the scope.
class HostProcess
{
public:
    /// Starts a host with a key that no other one has. It runs @p executable, or the one that was
    /// built along with the test.
    explicit HostProcess(int size, const QString& executable = QString());

    /// Starts a process that attaches to the segment under a key.
    struct Key
    {
        QString text;
    };
    explicit HostProcess(const Key& key);

    /// Starts a process that attaches to the segment of @p owner, and is to end before it.
    explicit HostProcess(const HostProcess* owner) : HostProcess(Key{owner->key()}) {}

    ~HostProcess();
    Q_DISABLE_COPY(HostProcess)

    /// The key of the segment, for the updater.
    const QString& key() const { return m_key; }

    /// Returns the bytes of the segment, whether or not someone holds its lock.
    QByteArray dump() { return QByteArray::fromHex(ask("dump")); }

    /// Writes @p bytes to the start of the segment, whether or not someone holds its lock.
    bool write(const QByteArray& bytes) { return ask("write " + bytes.toHex()) == "done"; }

    /// Takes the lock of the segment.
    /// @return False when that does not succeed in time.
    bool lock() { return ask("lock") == "done"; }

    /// Takes the lock as soon as it is free, without waiting here. Until gotLock() has been called
    /// the process takes no other command.
    void beginLock();

    /// Waits until the lock that beginLock() asked for is taken.
    /// @return False when that does not happen in time.
    bool gotLock() { return readLine() == "done"; }

    /// Returns the lock that lock() or beginLock() took.
    bool unlock() { return ask("unlock") == "done"; }

    /// Returns how many wait for the lock; -1 when that is unknown.
    int waiting() { return ask("waiting").toInt(); }

    /// Ends the host properly: it detaches from the segment, which is removed with its last user.
    bool quit();

    /// Ends the process at once (SIGKILL), whatever it holds.
    void kill();

    qint64 pid() const { return m_process.processId(); }

    /// The version of Qt the process runs on.
    QByteArray qtVersion() { return ask("qt"); }

    /// Returns a key that no host of this or another test has.
    static QString unusedKey();

    /// True when someone can attach to a segment under @p key.
    static bool segmentExists(const QString& key);

    /// Returns what a report of @p version leaves in a segment of @p size bytes.
    static QByteArray reported(const QByteArray& version, bool required = false, int size = 16);

    /// Returns what is in a segment of @p size bytes that nobody has written to.
    static QByteArray untouched(int size) { return QByteArray(size, '\xAA'); }

private:
    bool start(const QStringList& arguments);
    QByteArray ask(const QByteArray& command);
    QByteArray readLine();
    void removeWhatIsLeft() const;

    QProcess m_process;
    QString m_executable;
    QString m_key;
    bool m_ownsSegment = true;
    bool m_killed = false;
};

#endif // TESTS_SUPPORT_HOSTPROCESS_H
