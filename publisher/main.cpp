// updater-release: picks the command, reads its options, and turns its findings into the exit
// status.

#include "manifest/Printable.h"
#include "publisher/Diff.h"
#include "publisher/Lint.h"
#include "publisher/Output.h"
#include "publisher/Verify.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QUrl>

#include <cstdio>

namespace {

enum ExitStatus { AllRight = 0, Findings = 1, WrongUsage = 2 };

/// A command, as its users and the parser need to know it.
struct Command
{
    QString name;
    QString summary;
    QString description;
    QStringList arguments;
    bool hasAccept;
    bool hasTimeout;
};

/// The options and the words of a command line.
struct Request
{
    QString command;
    QStringList arguments;
    QString program;
    QStringList accepted;
    int timeout;
};

QVector<Command> commands()
{
    return {
        {QStringLiteral("lint"),
         QStringLiteral("find mistakes in a release tree"),
         QStringLiteral(
             "Finds what in the release tree DIR would not survive the version file, the web "
             "server or\nthe installation. Run it before \"updater -b\"."),
         {QStringLiteral("DIR")},
         true,
         false},
        {QStringLiteral("diff"),
         QStringLiteral("compare the version files of two releases"),
         QStringLiteral(
             "Compares the version files OLD and NEW: lists the files that are added, changed "
             "and removed,\nand says what a user of the old release downloads."),
         {QStringLiteral("OLD"), QStringLiteral("NEW")},
         false,
         false},
        {QStringLiteral("verify"),
         QStringLiteral("check a published release"),
         QStringLiteral(
             "Fetches the version file at URL and every file that it lists, one after the "
             "other, and checks\nthem as the updater does. Nothing is saved."),
         {QStringLiteral("URL")},
         false,
         true},
    };
}

ExitStatus refuse(const QString& why)
{
    publisher::write(stderr, manifest::printable(QLatin1String("updater-release: ") + why) +
                                 QLatin1String("\nTry \"updater-release --help\".\n"));
    return WrongUsage;
}

QString overview()
{
    QString text = QStringLiteral("Usage: updater-release COMMAND [OPTION...] ARGUMENT...\n\n"
                                  "Checks a release before and after it is published.\n\n"
                                  "Commands:\n");
    const QVector<Command> all = commands();
    for (const Command& command : all) {
        const QString usage =
            command.name + QLatin1Char(' ') + command.arguments.join(QLatin1Char(' '));
        text += QStringLiteral("  %1  %2\n").arg(usage.leftJustified(12), command.summary);
    }
    return text + QStringLiteral("\nOptions:\n"
                                 "  -h, --help      Show this text; after a command, its options.\n"
                                 "  -v, --version   Show the version.\n\n"
                                 "Exit status: 0 without findings, 1 with findings or when the "
                                 "output could not be written,\n2 when the command line is "
                                 "wrong.\n");
}

const QString& helpName()
{
    static const QString name = QStringLiteral("help");
    return name;
}

const QString& programName()
{
    static const QString name = QStringLiteral("name");
    return name;
}

const QString& acceptName()
{
    static const QString name = QStringLiteral("accept");
    return name;
}

const QString& timeoutName()
{
    static const QString name = QStringLiteral("timeout");
    return name;
}

/// Adds the options of @p command to the parser.
void describe(const Command& command, QCommandLineParser& parser)
{
    parser.addOption({{QStringLiteral("h"), helpName()}, QStringLiteral("Show this text.")});
    parser.addOption({{QStringLiteral("n"), programName()},
                      QStringLiteral("The program's name, as in \"updater -n NAME\"."),
                      QStringLiteral("NAME")});
    if (command.hasAccept)
        parser.addOption(
            {acceptName(),
             QStringLiteral("Do not count findings about paths that match PATTERN, in "
                            "which \"*\" is any text, \"/\" included. May be repeated."),
             QStringLiteral("PATTERN")});
    if (command.hasTimeout)
        parser.addOption({{QStringLiteral("t"), timeoutName()},
                          QStringLiteral("Give up a transfer after SECONDS without progress (30)."),
                          QStringLiteral("SECONDS"),
                          QStringLiteral("30")});
}

QString helpOf(const Command& command, const QCommandLineParser& parser)
{
    // Only the options of the parser's text: its usage line has the path of the program.
    const QString text = parser.helpText();
    return QStringLiteral("Usage: updater-release %1 [OPTION...] %2\n\n%3\n\n%4")
        .arg(command.name, command.arguments.join(QLatin1Char(' ')), command.description,
             text.mid(text.indexOf(QLatin1String("Options:"))));
}

int run(const Request& request)
{
    publisher::ConsoleOutput output;
    if (request.command == QLatin1String("lint"))
        publisher::lint(request.arguments.at(0), request.program, request.accepted, output);
    else if (request.command == QLatin1String("diff"))
        publisher::diff(request.arguments.at(0), request.arguments.at(1), request.program, output);
    else
        publisher::verify(request.arguments.at(0), request.program, request.timeout, output);
    if (!output.flush()) {
        output.note(QStringLiteral("updater-release: the output could not be written"));
        return Findings;
    }
    return output.findings() == 0 ? AllRight : Findings;
}

int runCommand(const Command& command, const QStringList& words)
{
    QCommandLineParser parser;
    describe(command, parser);
    if (!parser.parse(words))
        return refuse(parser.errorText());
    if (parser.isSet(helpName())) {
        publisher::write(stdout, helpOf(command, parser));
        return AllRight;
    }
    if (parser.positionalArguments().size() != command.arguments.size())
        return refuse(QStringLiteral("%1 takes %2")
                          .arg(command.name, command.arguments.join(QLatin1String(" and "))));

    constexpr int longestTimeout = 86400;
    Request request{command.name, parser.positionalArguments(), parser.value(programName()), {}, 0};
    if (command.hasAccept)
        request.accepted = parser.values(acceptName());
    if (command.hasTimeout) {
        request.timeout = parser.value(timeoutName()).toInt();
        if (request.timeout < 1 || request.timeout > longestTimeout)
            return refuse(
                QStringLiteral("--timeout takes a number from 1 to %1").arg(longestTimeout));
        const QUrl url(request.arguments.at(0));
        if (!url.isValid() || url.isRelative())
            return refuse(QStringLiteral("not a URL such as https://updates.example/index.txt: ") +
                          request.arguments.at(0));
    }
    return run(request);
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    QStringList words = QCoreApplication::arguments();
    const QString word = words.value(1);
    if (word == QLatin1String("-h") || word == QLatin1String("--help")) {
        publisher::write(stdout, overview());
        return AllRight;
    }
    if (word == QLatin1String("-v") || word == QLatin1String("--version")) {
        publisher::write(stdout, QStringLiteral("updater-release " VERSION "\n"));
        return AllRight;
    }

    const QVector<Command> all = commands();
    for (const Command& command : all) {
        if (command.name == word) {
            words.removeAt(1);
            return runCommand(command, words);
        }
    }
    return refuse(word.isEmpty() ? QStringLiteral("no command given")
                                 : QLatin1String("no such command: ") + word);
}
