// Shell scripts in place of real programs.
//
//   const FakeProgram editor(recordingArguments);
//   QVERIFY(QProcess::startDetached(editor.path(), {"--open", "a.txt"}));
//   QCOMPARE(editor.arguments(), QStringList({"--open", "a.txt"}));
#ifndef TESTS_SUPPORT_FAKEPROGRAM_H
#define TESTS_SUPPORT_FAKEPROGRAM_H

#include "tests/support/Files.h"

/// Returns the text of a script that runs @p commands with /bin/sh.
QByteArray shellScript(const QByteArray& commands);

/// Writes shellScript(@p commands) to @p path and makes it executable.
void writeScript(const QString& path, const QByteArray& commands);

/// Commands of a FakeProgram that write its arguments to a file for FakeProgram::arguments(). They
/// come last, because they change how the shell splits words.
inline constexpr char recordingArguments[] =
    "IFS='|'; echo \"$*\" >\"$dir/part\"; mv \"$dir/part\" \"$dir/arguments\"\n";

/// A script in a directory of its own, which its commands know as "$dir".
class FakeProgram
{
public:
    explicit FakeProgram(const QByteArray& commands) { become(commands); }

    /// Replaces the commands.
    void become(const QByteArray& commands) const
    {
        writeScript(path(), "dir=${0%/*}\n" + commands);
    }

    QString path() const { return m_dir / "program"; }

    /// Returns the path of a file that the commands know as "$dir/NAME".
    QString operator/(const QString& name) const { return m_dir / name; }

    /// Waits for the record of recordingArguments, and takes it.
    /// @return Nothing when there is none in time.
    QStringList arguments() const;

private:
    TestDir m_dir;
};

#endif // TESTS_SUPPORT_FAKEPROGRAM_H
