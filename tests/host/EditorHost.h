// Editor as a host application that uses the host kit.
//
//   const HostInfo info = editorInfo(UPDATER_EXECUTABLE, "1.0", server.url("/index.txt"));
//   server.serve("/index.txt", HttpReply::ok(versionFile("2.0")));
//   QCOMPARE(outcome(info), QStringList{"found 2.0 optional "});
#ifndef TESTS_HOST_EDITORHOST_H
#define TESTS_HOST_EDITORHOST_H

#include <UpdaterHost/UpdateCheck.h>

#include "tests/support/EditorRelease.h"

#include <QObject>
#include <QStringList>
#include <QTest>

/// What an Editor says to the kit about itself. It is not really installed.
inline HostInfo editorInfo(const QString& updater, const QString& version = QStringLiteral("1.0"),
                           const QString& url = QStringLiteral("http://127.0.0.1:1/index.txt"))
{
    return {updater, QStringLiteral("Editor"),
            version, QStringLiteral("/nowhere/Editor.app"),
            url,     QStringLiteral("/nowhere/Editor.app/Contents/MacOS/Editor")};
}

/// The arguments with which an update of @p info is started.
inline QStringList updateArguments(const HostInfo& info)
{
    return QStringList({"-u", "-n", info.name, "-d", info.baseDir, "-v", info.version, "-l",
                        info.url, "-x", info.exe});
}

/// The version file of a release without files.
inline QByteArray versionFile(const QString& version, bool required = false,
                              const QByteArray& changelog = QByteArray())
{
    return editorVersionFile(version, {}, required, QString::fromLatin1(changelog.toBase64()));
}

/// The signals of a check, in order, one line each, such as "found 2.0 required News".
class Reported : public QObject
{
public:
    explicit Reported(const UpdateCheck& check)
    {
        connect(&check, &UpdateCheck::versionFound, this,
                [this](const QString& version, bool required, const QString& changelog) {
                    lines.append("found " + version + (required ? " required " : " optional ") +
                                 changelog);
                });
        connect(&check, &UpdateCheck::upToDate, this, [this] { lines.append("up to date"); });
        connect(&check, &UpdateCheck::failed, this,
                [this](const QString& reason) { lines.append("failed: " + reason); });
    }

    QStringList lines;
};

/// Runs one check to its end.
/// @return The lines of its signals.
inline QStringList outcome(UpdateCheck& check)
{
    const Reported reported(check);
    if (!check.start())
        return {"does not start"};
    // A signal from within start() would come too early for some hosts.
    if (!reported.lines.isEmpty())
        return {"reported too early"};
    if (!QTest::qWaitFor([&] { return !reported.lines.isEmpty(); }, 30000))
        return {"reports nothing"};
    return reported.lines;
}

inline QStringList outcome(const HostInfo& info)
{
    UpdateCheck check(info);
    return outcome(check);
}

/// The line of a check that found no report, or none that can be read.
inline constexpr char unreadable[] = "failed: The published version could not be read.";

#endif // TESTS_HOST_EDITORHOST_H
