// What the tool says, and where it goes: results and findings, notes about the run, progress.
#ifndef PUBLISHER_OUTPUT_H
#define PUBLISHER_OUTPUT_H

#include <QString>

namespace publisher {

/// Returns @p text on one line and without power over a terminal: what cannot be printed, line ends
/// included, as "\x" or "\u" and its number. Names come from others.
QString printable(const QString& text);

/// Takes what a command has to say, and counts the findings.
class Output
{
public:
    Output() = default;
    virtual ~Output() = default;
    Q_DISABLE_COPY(Output)

    /// Writes a line of the result.
    void line(const QString& text) { writeLine(printable(text)); }

    /// Writes one thing that is not as it should be: where, and what it is.
    void finding(const QString& where, const QString& what);

    /// Writes a line about the run, which is no part of the result.
    void note(const QString& text) { writeNote(printable(text)); }

    /// Tells which of how many steps has begun. With @p step 0, that all have ended.
    virtual void progress(qsizetype step, qsizetype total) = 0;

    int findings() const { return m_findings; }

protected:
    virtual void writeLine(const QString& text) = 0;
    virtual void writeNote(const QString& text) = 0;

private:
    int m_findings = 0;
};

/// Lines go to standard output, notes to standard error. Progress goes to standard error, too, when
/// that is a terminal, and nowhere otherwise.
class ConsoleOutput : public Output
{
public:
    ConsoleOutput();

    void progress(qsizetype step, qsizetype total) override;

    /// Writes what is still held back.
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
