// Where results, findings, notes and progress are written to.

#include "publisher/Output.h"

#include <unistd.h>

namespace publisher {

void write(FILE* stream, const QString& text)
{
    const QByteArray bytes = text.toLocal8Bit();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
}

void Output::finding(const QString& where, const QString& what)
{
    ++m_findings;
    line(where + QLatin1String(": ") + what);
}

ConsoleOutput::ConsoleOutput() : m_onTerminal(::isatty(STDERR_FILENO) == 1) {}

void ConsoleOutput::progress(qsizetype step, qsizetype total)
{
    if (!m_onTerminal)
        return;
    m_progress = step == 0 ? QString() : QStringLiteral("%1 of %2").arg(step).arg(total);
    showProgress(m_progress);
}

bool ConsoleOutput::flush()
{
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

void ConsoleOutput::writeLine(const QString& text)
{
    if (!m_progress.isEmpty())
        showProgress(QString());
    write(stdout, text + QLatin1Char('\n'));
    if (!m_progress.isEmpty()) {
        std::fflush(stdout); // Both streams may show on the same terminal.
        showProgress(m_progress);
    }
}

void ConsoleOutput::writeNote(const QString& text)
{
    std::fflush(stdout);
    write(stderr, text + QLatin1Char('\n'));
}

void ConsoleOutput::showProgress(const QString& text) const
{
    // Back to the left margin, and clear what was there.
    write(stderr, QLatin1String("\r\033[K") + text);
    std::fflush(stderr);
}

} // namespace publisher
