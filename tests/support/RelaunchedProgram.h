// A program that an update starts again, and that tells the test how it was started.
#ifndef TESTS_SUPPORT_RELAUNCHEDPROGRAM_H
#define TESTS_SUPPORT_RELAUNCHEDPROGRAM_H

#include "tests/support/Files.h"

/// Makes scripts that, when started, write down who they are, their working directory and their
/// arguments, and then wait for the test's leave to end: so a test sees that they outlive whoever
/// started them. The records lie in a directory of this object's own.
class RelaunchedProgram
{
public:
    /// Gives every script that still waits its leave.
    ~RelaunchedProgram();

    /// Returns the text of a script that calls itself @p name.
    QByteArray script(const QByteArray& name) const;

    /// Writes script(@p name) to @p path, and makes it executable.
    void install(const QString& path, const QByteArray& name) const;

    /// The records of the scripts started so far: "name|working directory|arguments", one line for
    /// each, in the order they were started.
    QStringList starts() const;

    /// Lets the scripts end. Each then leaves a line in ends().
    void letEnd() const;

    /// The names of the scripts that have ended after letEnd().
    QStringList ends() const;

private:
    QStringList linesOf(const QString& name) const;

    TestDir m_dir;
};

#endif // TESTS_SUPPORT_RELAUNCHEDPROGRAM_H
