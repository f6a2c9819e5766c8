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
    /// Starts a host with a key that no other one has.
    explicit HostProcess(int size);

    ~HostProcess();
    Q_DISABLE_COPY(HostProcess)

    /// The key of the segment, for the updater.
    const QString& key() const { return m_key; }

    /// Returns the bytes of the segment, whether or not someone holds its lock.
    QByteArray dump() { return QByteArray::fromHex(ask("dump")); }

    /// Takes the lock of the segment.
    /// @return False when that does not succeed in time.
    bool lock() { return ask("lock") == "done"; }

    /// Returns the lock that lock() took.
    bool unlock() { return ask("unlock") == "done"; }

    /// Returns how many wait for the lock; -1 when that cannot be told.
    int waiting() { return ask("waiting").toInt(); }

    /// Ends the host in order: it lets go of the segment, which goes with its last user.
    bool quit();

    /// Returns a key that no host of this or another test has.
    static QString unusedKey();

    /// True when someone can attach to a segment under @p key.
    static bool segmentExists(const QString& key);

    /// Returns what is in a segment of @p size bytes that nobody has written to.
    static QByteArray untouched(int size) { return QByteArray(size, '\xAA'); }

private:
    bool start(int size);
    QByteArray ask(const QByteArray& command);
    QByteArray readLine();
    void removeWhatIsLeft() const;

    QProcess m_process;
    QString m_key;
};

#endif // TESTS_SUPPORT_HOSTPROCESS_H
