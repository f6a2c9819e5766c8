// Tells whether a file or directory has been opened.
#ifndef TESTS_SUPPORT_OPENWATCH_H
#define TESTS_SUPPORT_OPENWATCH_H

#include <QFile>
#include <QString>

#ifdef __linux__
#include <sys/inotify.h>
#include <unistd.h>

/// Watches one file or directory from its making on. Looking at it, as stat does, is not opening.
class OpenWatch
{
public:
    static constexpr bool isSupported = true;

    explicit OpenWatch(const QString& path)
        : m_descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        if (::inotify_add_watch(m_descriptor, QFile::encodeName(path).constData(), IN_OPEN) < 0)
            qFatal("test fixture: cannot watch %s", qPrintable(path));
    }

    ~OpenWatch() { ::close(m_descriptor); }
    Q_DISABLE_COPY(OpenWatch)

    /// True when it has been opened since the watch began, or since the last call.
    bool opened() const
    {
        alignas(inotify_event) char events[4096];
        return ::read(m_descriptor, events, sizeof events) > 0;
    }

private:
    const int m_descriptor;
};

#else

/// Tests that need the watch are skipped on this system.
class OpenWatch
{
public:
    static constexpr bool isSupported = false;

    explicit OpenWatch(const QString&) {}
    bool opened() const { return false; }
};

#endif

#endif // TESTS_SUPPORT_OPENWATCH_H
