// The command line: the option globals and their parser.

#include "app/Options.h"

#include "manifest/QtVersions.h"

#include <QFile>
#include <QStringList>

QString fProgramName;
QString fProgramBaseDir;
QString fProgramVersion;
QString fUpdateUrl;
QString fSharedMemKey;
QString fProgramExe;
QString fChangelogFile;

bool fBuildVerFile = false;
bool fCheckVerOnly = false;
bool fDoUpdate = false;
bool fRequiredUpd = false;

namespace {

/// How often removing one file of a `--cleanup` list may fail before it is left in place.
constexpr int maxFailedRemovals = 50;

bool* flagOption(char letter)
{
    switch (letter) {
    case 'b':
        return &fBuildVerFile;
    case 'c':
        return &fCheckVerOnly;
    case 'r':
        return &fRequiredUpd;
    case 'u':
        return &fDoUpdate;
    default:
        return nullptr;
    }
}

QString* valueOption(char letter)
{
    switch (letter) {
    case 'd':
        return &fProgramBaseDir;
    case 'l':
        return &fUpdateUrl;
    case 'n':
        return &fProgramName;
    case 's':
        return &fSharedMemKey;
    case 'v':
        return &fProgramVersion;
    case 'x':
        return &fProgramExe;
    default:
        return nullptr;
    }
}

void removeFile(const QString& path)
{
    for (int failures = 0; failures < maxFailedRemovals && QFile::exists(path); ++failures) {
        if (QFile::remove(path))
            return;
    }
}

void cleanUp(const QString& list)
{
    const QStringList paths = list.split(QLatin1Char(';'), Qt::SkipEmptyParts, Qt::CaseSensitive);
    for (const QString& path : paths)
        removeFile(path);
}

void setChangelogFile(const QString& fileName)
{
    fChangelogFile = fileName;
    trimQuotes(fChangelogFile);
    if (QFile::exists(fChangelogFile))
        return;
    // The doubled quotes and the space at the end are intended: release scripts match this text.
    qtversions::debug(
        QStringLiteral("The changelog file \" \"%1\" \" doesn't exist! ").arg(fChangelogFile));
    fChangelogFile = QString();
}

/// Acts on the long option @p option, which is followed by the argument @p next.
/// @return True when @p next was its value. Unknown options take none and are no error.
bool processLongOption(const char* option, const char* next)
{
    if (qstricmp(option, "--cleanup") == 0) {
        cleanUp(QString::fromLocal8Bit(next));
        return true;
    }
    if (qstricmp(option, "--changelog") == 0) {
        setChangelogFile(QString::fromLocal8Bit(next));
        return true;
    }
    return false;
}

} // namespace

bool processArgs(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] != '-')
            continue;
        const char letter = argv[i][1];
        const bool last = i == argc - 1;

        if (bool* flag = flagOption(letter)) {
            *flag = true;
        } else if (QString* value = valueOption(letter)) {
            if (last)
                return false;
            *value = QString::fromLatin1(argv[++i]);
            trimQuotes(*value);
        } else if (letter == '-') {
            // Unlike a value option, a long option may be the last argument: it is then ignored.
            if (!last && processLongOption(argv[i], argv[i + 1]))
                ++i;
        } else {
            return false;
        }
    }
    return true;
}

void trimQuotes(QString& s)
{
    const QLatin1Char quote('"');
    if (s.size() < 2 || !s.startsWith(quote) || !s.endsWith(quote))
        return;
    s.chop(1);
    s.remove(0, 1);
}
