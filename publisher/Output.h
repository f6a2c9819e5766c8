// Where a command writes its results, findings, notes and progress to.
//
//   output.finding("a b.txt", "leading or trailing space"); // "a b.txt: leading or trailing space"
//   return output.findings() == 0 ? 0 : 1;
#ifndef PUBLISHER_OUTPUT_H
#define PUBLISHER_OUTPUT_H

#include "manifest/Printable.h"

#include <QString>

#include <cstdio>

namespace publisher {

/// Writes @p text to @p stream as it is, in the system's encoding.
void write(FILE* stream, const QString& text);

/// Takes the output of a command, escapes what cannot be printed, and counts the findings.
class Output
{
public:
    Output() = default;
    virtual ~Output() = default;
    Q_DISABLE_COPY(Output)

    /// Writes a line of the result.
    void line(const QString& text) { writeLine(manifest::printable(text)); }

    /// Writes one problem: where it is, and what it is.
    void finding(const QString& where, const QString& what);

    /// Writes a line about the run that is not part of the result.
    void note(const QString& text) { writeNote(manifest::printable(text)); }

    /// Shows that step @p step of @p total has begun; 0 when all have ended.
    virtual void progress(qsizetype step, qsizetype total) = 0;

    int findings() const { return m_findings; }

protected:
    virtual void writeLine(const QString& text) = 0;
    virtual void writeNote(const QString& text) = 0;

private:
    int m_findings = 0;
};

/// Writes lines to standard output and notes to standard error. Progress is shown on standard error
/// if that is a terminal.
class ConsoleOutput : public Output
{
public:
    ConsoleOutput();

    void progress(qsizetype step, qsizetype total) override;

    /// Writes what is still buffered.
    /// @return False when not all of the result could be written.
    bool flush();

protected:
    void writeLine(const QString& text) override;
    void writeNote(const QString& text) override;

private:
    /// Writes on the line where progress is shown, over what is there.
    void showProgress(const QString& text) const;

    bool m_onTerminal;
    QString m_progress; ///< As it is shown now.
};

} // namespace publisher

#endif // PUBLISHER_OUTPUT_H
