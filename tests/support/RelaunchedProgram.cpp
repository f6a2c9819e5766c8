#include "tests/support/RelaunchedProgram.h"

#include "tests/support/FakeProgram.h"

#include <QFile>

RelaunchedProgram::~RelaunchedProgram()
{
    letEnd();
}

QByteArray RelaunchedProgram::script(const QByteArray& name) const
{
    return shellScript(commands(name));
}

void RelaunchedProgram::install(const QString& path, const QByteArray& name) const
{
    writeScript(path, commands(name));
}

QStringList RelaunchedProgram::starts() const
{
    return linesOf("starts");
}

void RelaunchedProgram::letEnd() const
{
    files::write(m_dir / "leave", "");
}

QStringList RelaunchedProgram::ends() const
{
    return linesOf("ends");
}

QByteArray RelaunchedProgram::commands(const QByteArray& name) const
{
    // They give up after a minute, or when the test has ended.
    return QByteArray("printf '%s\\n' \"@name|$(pwd)|$*\" >>'@dir/starts'\n"
                      "tries=0\n"
                      "while [ ! -e '@dir/leave' ] && [ -d '@dir' ] && [ $tries -lt 1200 ]; do\n"
                      "  sleep 0.05\n"
                      "  tries=$((tries + 1))\n"
                      "done\n"
                      "[ -d '@dir' ] && echo '@name' >>'@dir/ends'\n")
        .replace("@name", name)
        .replace("@dir", QFile::encodeName(m_dir.path()));
}

QStringList RelaunchedProgram::linesOf(const QString& name) const
{
    if (!QFile::exists(m_dir / name))
        return {};
    return QString::fromUtf8(files::read(m_dir / name)).split('\n', Qt::SkipEmptyParts);
}
