// A program that an update starts again, and that writes down how it was started.
//
//   const RelaunchedProgram program;
//   program.install(dir / "Editor", "Editor 2.0");
//   ... an update starts it
//   QTRY_COMPARE(program.starts(), QStringList{"Editor 2.0|" + dir.path() + "|"});
#ifndef TESTS_SUPPORT_RELAUNCHEDPROGRAM_H
#define TESTS_SUPPORT_RELAUNCHEDPROGRAM_H

#include "tests/support/Files.h"

/// Makes scripts that, when started, write down their name, their working directory and their
/// arguments. Then they wait until they may end, so that a test sees that they outlive the process
/// that started them. The records are in a directory of this object's own.
class RelaunchedProgram
{
public:
    /// Lets the scripts that still wait end.
    ~RelaunchedProgram();

    /// Returns the text of a script that calls itself @p name.
    QByteArray script(const QByteArray& name) const;

    /// Writes script(@p name) to @p path, and makes it executable.
    void install(const QString& path, const QByteArray& name) const;

    /// The records of the scripts started so far, in the order they were started:
    /// "name|working directory|arguments", one line for each script.
    QStringList starts() const;

    /// Lets the scripts end. Each then leaves a line in ends().
    void letEnd() const;

    /// The names of the scripts that have ended after letEnd().
    QStringList ends() const;

private:
    QByteArray commands(const QByteArray& name) const;
    QStringList linesOf(const QString& name) const;

    TestDir m_dir;
};

#endif // TESTS_SUPPORT_RELAUNCHEDPROGRAM_H
