// Reads the command line of updater-guard, and explains it.

#include "host/guard/GuardOptions.h"

#include "manifest/Paths.h"
#include "manifest/Printable.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>

#include <cstdio>
#include <limits>
#include <utility>

namespace {

enum GuardStatus { GuardHasExplained = 0, GuardIsMisused = 2 };

QList<QCommandLineOption> guardOptionList()
{
    return {
        {QStringLiteral("name"), QStringLiteral("The program's name, as in the version file."),
         QStringLiteral("NAME")},
        {QStringLiteral("dir"), QStringLiteral("The directory that the program is installed in."),
         QStringLiteral("DIR")},
        {QStringLiteral("version-installed"), QStringLiteral("The installed version."),
         QStringLiteral("VERSION")},
        {QStringLiteral("url"), QStringLiteral("URL of the version file."), QStringLiteral("URL")},
        {QStringLiteral("exe"), QStringLiteral("The program to start in the end."),
         QStringLiteral("EXE")},
        {QStringLiteral("updater"),
         QStringLiteral("The updater (\"updater\" in the directory of this program)."),
         QStringLiteral("PATH")},
        {QStringLiteral("wait-for"), QStringLiteral("Wait until the process PID has ended."),
         QStringLiteral("PID")},
        {QStringLiteral("wait-seconds"),
         QStringLiteral("Give up when it still runs after so long (60)."),
         QStringLiteral("SECONDS")},
        {QStringLiteral("public-key"),
         QStringLiteral("Refuse a version file without a signature by this key. May be repeated: "
                        "then one of the keys must have signed."),
         QStringLiteral("FILE")},
        {QStringLiteral("allow-downgrade"),
         QStringLiteral("Install a lower version than the installed one.")},
        {QStringLiteral("executable"),
         QStringLiteral("Make files whose names match PATTERN executable, besides those that were. "
                        "May be repeated."),
         QStringLiteral("PATTERN")},
        {QStringLiteral("remove-obsolete"),
         QStringLiteral("Remove files of the installed release that the new one does not have.")},
        {QStringLiteral("jobs"), QStringLiteral("Transfers at once (6)."), QStringLiteral("N")},
        {QStringLiteral("stall-seconds"),
         QStringLiteral("Try a transfer again that brings nothing for so long (60)."),
         QStringLiteral("SECONDS")},
        {QStringLiteral("no-relaunch"), QStringLiteral("Do not start the program in the end.")},
        {QStringLiteral("state-dir"), QStringLiteral("Where to write last-update.json."),
         QStringLiteral("DIR")},
        {QStringLiteral("help"), QStringLiteral("Show this text.")},
        {QStringLiteral("version"), QStringLiteral("Show the version.")},
    };
}

QString guardHelp(const QCommandLineParser& parser)
{
    // Only the options of the parser's text: its usage line has the path of the program.
    const QString text = parser.helpText();
    return QStringLiteral(
               "Usage: updater-guard --name NAME --dir DIR --version-installed VERSION\n"
               "                     --url URL --exe EXE [OPTION...]\n\n"
               "Has the updater update a copy of DIR, verifies the copy, and exchanges the two in "
               "one step.\n\n%1\n"
               "Exit status: 0 installed, or nothing to do; 1 not installed, the old release is "
               "untouched;\n2 wrong usage; 3 another update of DIR runs; 4 the release is "
               "refused.\n")
        .arg(text.mid(text.indexOf(QLatin1String("Options:"))));
}

int explain(const QString& text)
{
    std::fputs(text.toLocal8Bit().constData(), stdout);
    return GuardHasExplained;
}

int refuseUsage(const QString& why)
{
    const QString text = manifest::printable(QLatin1String("updater-guard: ") + why) +
                         QLatin1String("\nTry \"updater-guard --help\".\n");
    std::fputs(text.toLocal8Bit().constData(), stderr);
    return GuardIsMisused;
}

QString optionNamed(QLatin1String option)
{
    return QLatin1String("--") + option;
}

// Each of the following reads some of the options. It returns what is wrong with them, or nothing.

QString readTexts(const QCommandLineParser& parser, GuardOptions& options)
{
    const QList<std::pair<QLatin1String, QString*>> required{
        {QLatin1String("name"), &options.name},
        {QLatin1String("dir"), &options.dir},
        {QLatin1String("version-installed"), &options.installedVersion},
        {QLatin1String("url"), &options.url},
        {QLatin1String("exe"), &options.exe},
    };
    for (const auto& [option, text] : required) {
        *text = parser.value(option);
        if (text->isEmpty())
            return optionNamed(option) + QLatin1String(" is missing or empty");
    }
    if (paths::lastSeparator(options.name) >= 0)
        return QLatin1String("--name takes no path: ") + options.name;
    const QUrl url(options.url);
    const bool isOfWeb =
        url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https");
    if (!url.isValid() || !isOfWeb || url.host().isEmpty())
        return QLatin1String("not a URL such as https://updates.example/index.txt: ") + options.url;
    return QString();
}

template <typename Number>
QString readNumber(const QCommandLineParser& parser, QLatin1String option, Number least,
                   Number most, Number& number)
{
    if (!parser.isSet(option))
        return QString();
    bool isNumber = false;
    const qlonglong value = parser.value(option).toLongLong(&isNumber);
    if (!isNumber || value < least || value > most)
        return QStringLiteral("%1 takes a number from %2 to %3")
            .arg(optionNamed(option))
            .arg(least)
            .arg(most);
    number = static_cast<Number>(value);
    return QString();
}

QString readNumbers(const QCommandLineParser& parser, GuardOptions& options)
{
    constexpr int secondsOfADay = 86400;
    constexpr int mostJobs = 32;
    constexpr qint64 highestPid = std::numeric_limits<qint32>::max();
    QString why =
        readNumber<qint64>(parser, QLatin1String("wait-for"), 1, highestPid, options.waitFor);
    if (why.isEmpty())
        why = readNumber(parser, QLatin1String("wait-seconds"), 0, secondsOfADay,
                         options.waitSeconds);
    if (why.isEmpty())
        why = readNumber(parser, QLatin1String("jobs"), 1, mostJobs, options.jobs);
    if (why.isEmpty())
        why = readNumber(parser, QLatin1String("stall-seconds"), 1, secondsOfADay,
                         options.stallSeconds);
    return why;
}

QString readFiles(const QCommandLineParser& parser, GuardOptions& options)
{
    const QLatin1String updater("updater");
    const QString path = parser.isSet(updater)
                             ? parser.value(updater)
                             : QDir(QCoreApplication::applicationDirPath()).filePath(updater);
    if (path.isEmpty())
        return QStringLiteral("--updater is empty");
    options.updater = QDir::current().absoluteFilePath(path);
    options.stateDir = parser.value(QStringLiteral("state-dir"));

    options.publicKeys.clear();
    const QStringList keyFiles = parser.values(QStringLiteral("public-key"));
    for (const QString& keyFile : keyFiles) {
        if (keyFile.isEmpty())
            return QStringLiteral("--public-key is empty");
        QString why;
        const std::optional<guard::PublicKey> key = guard::PublicKey::fromFile(keyFile, why);
        if (!key)
            return why;
        options.publicKeys.append(*key);
    }
    return QString();
}

void readFlags(const QCommandLineParser& parser, GuardOptions& options)
{
    options.allowDowngrade = parser.isSet(QStringLiteral("allow-downgrade"));
    options.executable = parser.values(QStringLiteral("executable"));
    options.removeObsolete = parser.isSet(QStringLiteral("remove-obsolete"));
    options.relaunch = !parser.isSet(QStringLiteral("no-relaunch"));
}

} // namespace

std::optional<int> readOptions(const QStringList& arguments, GuardOptions& options)
{
    QCommandLineParser parser;
    parser.addOptions(guardOptionList());
    if (!parser.parse(arguments))
        return refuseUsage(parser.errorText());
    if (parser.isSet(QStringLiteral("help")))
        return explain(guardHelp(parser));
    if (parser.isSet(QStringLiteral("version")))
        return explain(QStringLiteral("updater-guard " VERSION "\n"));

    QString why;
    if (!parser.positionalArguments().isEmpty())
        why = QLatin1String("unexpected argument: ") + parser.positionalArguments().constFirst();
    if (why.isEmpty())
        why = readTexts(parser, options);
    if (why.isEmpty())
        why = readNumbers(parser, options);
    if (why.isEmpty())
        why = readFiles(parser, options);
    if (!why.isEmpty())
        return refuseUsage(why);
    readFlags(parser, options);
    return std::nullopt;
}
