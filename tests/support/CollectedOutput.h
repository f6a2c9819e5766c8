// The output of a command of updater-release, in memory.
//
//   CollectedOutput output;
//   publisher::lint(dir.path(), "Editor", {}, output);
//   QCOMPARE(output.lines, QStringList());
#ifndef TESTS_SUPPORT_COLLECTEDOUTPUT_H
#define TESTS_SUPPORT_COLLECTEDOUTPUT_H

#include "publisher/Output.h"

#include <QStringList>

class CollectedOutput : public publisher::Output
{
public:
    void progress(qsizetype step, qsizetype total) override
    {
        steps.append(QStringLiteral("%1/%2").arg(step).arg(total));
    }

    /// The lines without the reasons, which follow the first semicolon of each.
    QStringList withoutReasons() const
    {
        QStringList shorter;
        for (const QString& line : lines)
            shorter.append(line.section(';', 0, 0));
        return shorter;
    }

    QStringList lines;
    QStringList notes;
    QStringList steps;

protected:
    void writeLine(const QString& text) override { lines.append(text); }
    void writeNote(const QString& text) override { notes.append(text); }
};

#endif // TESTS_SUPPORT_COLLECTEDOUTPUT_H
