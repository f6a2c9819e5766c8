// The version check: what is asked of the server, how its answer is read and reported, and which
// runs end there.

#include "updater/Updater.h"

#include "tests/support/ChangelogFile.h"
#include "tests/support/HostProcess.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/RelaunchedProgram.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProcess.h"
#include "tests/unit/Run.h"

#include <QNetworkReply>
#include <QPointer>
#include <QTcpServer>

#include <memory>

namespace {

QString unreachableUrl()
{
    QTcpServer closed;
    closed.listen(QHostAddress::LocalHost);
    return QStringLiteral("http://127.0.0.1:%1/index.txt").arg(closed.serverPort());
}

/// What was written for the changelog of @p version; "(none)" when there is no file.
QByteArray changelogLeft(const QString& version)
{
    const QString path = changelogFile(version);
    return QFile::exists(path) ? files::read(path) : QByteArray("(none)");
}

} // namespace

Q_DECLARE_METATYPE(HttpReply)

class TestVersionCheck : public RunTest
{
    Q_OBJECT

private Q_SLOTS:
    // ---- The request

    void urlIsUsedAsGiven_data()
    {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QString>("requested");
        row("file", "/releases/index.txt", "/releases/index.txt");
        row("directory gets no file name", "/releases/", "/releases/");
        row("name without a slash after it", "/releases", "/releases");
        row("server alone", "", "/");
        row("query", "/index.txt?channel=beta&n=1", "/index.txt?channel=beta&n=1");
        row("query of a directory", "/?v=1.0", "/?v=1.0");
        row("percent escapes stay escaped", "/a%20b%2Fc/index.txt?q=%26",
            "/a%20b%2Fc/index.txt?q=%26");
        row("spaces are escaped", "/my releases/index.txt", "/my%20releases/index.txt");
        row("other characters are escaped as UTF-8",
            "/gr\xC3\xB6\xC3\x9F"
            "e.txt",
            "/gr%C3%B6%C3%9F"
            "e.txt");
    }

    void urlIsUsedAsGiven()
    {
        QFETCH(QString, given);
        QFETCH(QString, requested);
        Run run;
        run.url = run.server.url(given);
        run.updater().start(true);
        QTRY_COMPARE(run.server.requests(), QStringList{requested});
        QVERIFY(run.server.lastHeader().startsWith("GET "));
    }

    void replyIsReadOnceAndReleased()
    {
        Run run;
        run.publish(editorRecord("2.1"));
        run.updater().start(true);
        const QPointer<QNetworkReply> reply = run.state().netManager.findChild<QNetworkReply*>();
        QVERIFY(reply);
        QTRY_VERIFY(!reply);
        QCOMPARE(run.state().programData.version, QString("2.1"));
        QCOMPARE(run.server.requests().size(), 1);
        QVERIFY(run.state().netManager.findChildren<QNetworkReply*>().isEmpty());
    }

    // ---- The reading of the reply

    void bodyIsReadHoweverTheTransferWent_data()
    {
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<QString>("version");
        const QByteArray whole = editorRecord("2.1");
        const QByteArray padded = whole + QByteArray(5000, ' ');
        const int length = static_cast<int>(whole.size());
        row("complete", HttpReply::ok(whole), "2.1");
        for (const int status : {201, 400, 401, 403, 404, 410, 500, 503}) {
            QTest::addRow("status %d", status) << HttpReply::error(status, whole) << "2.1";
            QTest::addRow("status %d without a body", status) << HttpReply::error(status) << "";
        }
        row("cut short after the record", HttpReply::cutShort(padded, length + 10), "2.1");
        row("cut short inside the record", HttpReply::cutShort(padded, length - 5), "");
        row("reset inside the record", HttpReply::resetInBody(padded, length - 5), "");
        row("reset before the first byte", HttpReply::reset(), "");
        row("empty", HttpReply::ok(""), "");
    }

    void bodyIsReadHoweverTheTransferWent()
    {
        QFETCH(HttpReply, reply);
        QFETCH(QString, version);
        Run run;
        run.publish(reply);
        QCOMPARE(run.check(), 0);
        QCOMPARE(run.state().programData.version, version);
    }

    void redirectIsJudgedByItsOwnBody_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("version");
        row("readable", editorRecord("2.1"), "2.1");
        row("unreadable", QByteArray("moved"), "");
        row("empty", QByteArray(), "");
    }

    void redirectIsJudgedByItsOwnBody()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, version);
        Run run;
        run.publish(HttpReply::redirect(run.server.url("/moved.txt"), body));
        run.server.serve("/moved.txt", HttpReply::ok(editorRecord("3.0")));
        QCOMPARE(run.check(), 0);
        QCOMPARE(run.state().programData.version, version);
        QCOMPARE(run.server.requests(), QStringList{"/releases/index.txt"});
    }

    void serverOutOfReachCountsAsUnreadable_data()
    {
        QTest::addColumn<QString>("url");
        row("nobody listens", unreachableUrl());
        row("no scheme", "index.txt");
        row("unknown scheme", "gopher://127.0.0.1/index.txt");
        row("invalid", "http://[");
        row("missing local file", "file:///no/such/index.txt");
        row("empty", "");
    }

    void serverOutOfReachCountsAsUnreadable()
    {
        QFETCH(QString, url);
        HostProcess host(16);
        Run run;
        run.url = url;
        run.key = host.key();
        QCOMPARE(run.check(), 0);
        QCOMPARE(host.dump(), HostProcess::reported("", false, 16));
    }

    void textEndsAtTheFirstZeroByte_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QStringList>("names");
        const QByteArray zero(1, '\0');
        const QByteArray one = entry("one", "1");
        row("after the record", editorRecord("2.1", one) + zero, "2.1", QStringList{"one"});
        row("before the record", zero + editorRecord("2.1", one), "", QStringList());
        row("inside the record", editorRecord("2.1", one + zero + entry("two", "2")), "",
            QStringList());
        row("between two records",
            record("Other", "<version>9</version>") + zero + editorRecord("2.1"), "",
            QStringList());
        row("two of them: the first counts", editorRecord("2.1") + zero + "text" + zero, "2.1",
            QStringList());
    }

    void textEndsAtTheFirstZeroByte()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, version);
        QFETCH(QStringList, names);
        Run run;
        run.publish(body);
        QCOMPARE(run.check(), 0);
        QCOMPARE(run.state().programData.version, version);
        QCOMPARE(run.selected(), names);
    }

    void bytesAreLatin1_data()
    {
        QTest::addColumn<QByteArray>("version");
        row("Latin-1", QByteArray("2.\xE4"));
        row("UTF-8 is two characters", QByteArray("2.\xC3\xA4"));
        row("the whole upper half", QByteArray("\xA1\xBF\xFF\x80\x9F\xDF"));
    }

    void bytesAreLatin1()
    {
        QFETCH(QByteArray, version);
        HostProcess host(16);
        Run run;
        run.key = host.key();
        run.publish(editorRecord(version));
        QCOMPARE(run.check(), 0);
        QCOMPARE(run.state().programData.version, QString::fromLatin1(version));
        QCOMPARE(host.dump(), HostProcess::reported(version, false, 16));
    }

    void packedBodyIsUnpacked_data()
    {
        QTest::addColumn<int>("spaces");
        row("small", 0);
        row("below 10 MiB, high ratio", 9 * 1024 * 1024);
        row("above 10 MiB, high ratio", 24 * 1024 * 1024);
    }

    void packedBodyIsUnpacked()
    {
        QFETCH(int, spaces);
        Run run;
        run.publish(HttpReply::gzipped(QByteArray(spaces, ' ') + editorRecord("2.1")));
        QCOMPARE(run.check(), 0);
        QCOMPARE(run.state().programData.version, QString("2.1"));
    }

    void recordOfTheProgramIsRead_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("version");
        row("first", "Editor", "2.1");
        row("second", "Viewer", "7.5");
        row("in another case", "eDITOR", "2.1");
        row("neither", "Edit", "");
    }

    void recordOfTheProgramIsRead()
    {
        QFETCH(QString, name);
        QFETCH(QString, version);
        Run run;
        run.programName = name;
        run.publish(editorRecord("2.1") + '\n' + record("Viewer", "<version>7.5</version>"));
        QCOMPARE(run.check(), 0);
        QCOMPARE(run.state().programData.version, version);
    }

    // ---- The report

    void publishedVersionAndFlagAreReported_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<char>("flag");
        row("required", editorRecord("2.1", "<required>true</required>"), QByteArray("2.1"), '1');
        row("not required", editorRecord("2.1", "<required>false</required>"), QByteArray("2.1"),
            '0');
        row("no such element", editorRecord("2.1"), QByteArray("2.1"), '0');
        row("trimmed version", editorRecord(" \t2.1\n "), QByteArray("2.1"), '0');
        row("same version as installed", editorRecord("1.0"), QByteArray("1.0"), '0');
        row("no record", QByteArray("<html></html>"), QByteArray(), '0');
        row("record of a space", record("Editor", " "), QByteArray(), '0');
        row("record without a version", record("Editor", "<required>true</required>"), QByteArray(),
            '0');
        row("version of a space", editorRecord(" ", "<required>true</required>"), QByteArray(),
            '0');
    }

    void publishedVersionAndFlagAreReported()
    {
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, text);
        QFETCH(char, flag);
        for (const bool checkOnly : {true, false}) {
            HostProcess host(16);
            Run run;
            run.key = host.key();
            run.publish(body);
            QCOMPARE(checkOnly ? run.check() : run.update(), 0);
            QCOMPARE(host.dump(), HostProcess::reported(text, flag == '1', 16));
        }
    }

    void runContinuesWithoutReport_data()
    {
        QTest::addColumn<int>("segmentSize");
        row("no key", -1);
        row("no segment", 0);
        row("segment too small", 5);
    }

    void runContinuesWithoutReport()
    {
        QFETCH(int, segmentSize);
        std::unique_ptr<HostProcess> host;
        if (segmentSize > 0)
            host = std::make_unique<HostProcess>(segmentSize);
        Run run;
        if (segmentSize >= 0)
            run.key = host ? host->key() : HostProcess::unusedKey();
        run.publish(editorRecord("2.1", "<changelog>bmV3</changelog>" + entry("missing", "1")));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(changelogLeft("2.1"), QByteArray("bmV3"));
        if (host)
            QCOMPARE(host->dump(), HostProcess::untouched(segmentSize));
    }

    // ---- An unreadable version file

    void unreadableManifestReportsTheValuesOfTheRecord_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<QString>("inRecord");
        QTest::addColumn<bool>("required");
        QTest::addColumn<QByteArray>("expected");
        row("new record", 16, "", false, HostProcess::reported("", false, 16));
        row("flag of the record", 16, "", true, HostProcess::reported("", true, 16));
        row("version of the record", 16, "9.9", true, HostProcess::reported("9.9", true, 16));
        // If only the first of the two reports fits, it stays.
        row("error report stays when the second is too long", 8, "10.0.0", true,
            HostProcess::reported("ERROR", false, 8));
        row("segment too small for both", 7, "10.0.0", true, HostProcess::untouched(7));
        row("segment too small for the error", 6, "9.9", true,
            HostProcess::reported("9.9", true, 6));
    }

    void unreadableManifestReportsTheValuesOfTheRecord()
    {
        QFETCH(int, size);
        QFETCH(QString, inRecord);
        QFETCH(bool, required);
        QFETCH(QByteArray, expected);
        HostProcess host(size);
        Run run;
        run.key = host.key();
        run.publish("unreadable");
        run.state().programData.version = inRecord;
        run.state().programData.required = required;
        QCOMPARE(run.check(), 0);
        QCOMPARE(host.dump(), expected);
    }

    void readableManifestNeverReportsAnError()
    {
        HostProcess host(8);
        Run run;
        run.key = host.key();
        run.publish(editorRecord("10.0.0"));
        QCOMPARE(run.check(), 0);
        QCOMPARE(host.dump(), HostProcess::untouched(8));
    }

    void unreadableManifestEndsLikeAnyOther_data()
    {
        QTest::addColumn<bool>("checkOnly");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("inRecord");
        QTest::addColumn<QStringList>("directories");
        row("check", true, "1.0", "", QStringList());
        row("update of the version in the record", false, "9.9", "9.9", QStringList());
        row("update of no version", false, "", "", QStringList());
        row("update continues to the installation", false, "1.0", "", QStringList{"wUp"});
        row("update, with a version in the record", false, "1.0", "9.9", QStringList{"wUp9.9"});
    }

    void unreadableManifestEndsLikeAnyOther()
    {
        QFETCH(bool, checkOnly);
        QFETCH(QString, installed);
        QFETCH(QString, inRecord);
        QFETCH(QStringList, directories);
        Run run;
        run.version = installed;
        run.publish("unreadable");
        run.state().programData.version = inRecord;
        QCOMPARE(checkOnly ? run.check() : run.update(), 0);
        QCOMPARE(downloadDirectories(), directories);
        QVERIFY(!run.dialog());
        QCOMPARE(run.server.requests().size(), 1);
    }

    void exitStatusOneStaysWhenNothingReplacesIt()
    {
        Run run;
        run.publish("unreadable");
        run.state().programData.files.append({"missing", files::sha1("1"), 1});
        QCOMPARE(run.update(), 1);
        // The run has continued anyway, to the first download.
        QVERIFY(run.dialog());
        QTRY_COMPARE(run.fileRequests(), QStringList{"/releases/missing"});
    }

    void nameOfARecordWithoutVersionIsKept()
    {
        Run run;
        run.publish(record("Editor", "<required>true</required>"));
        QCOMPARE(run.update(), 0);
        QCOMPARE(run.state().programData.name, QString("Editor"));
        QCOMPARE(downloadDirectories(), QStringList{"wUpEditor"});
    }

    // ---- The changelog file

    void changelogFileIsWrittenInEveryMode_data()
    {
        QTest::addColumn<bool>("checkOnly");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<int>("state");
        row("check", true, "1.0", 0);
        row("check, up to date", true, "2.1", 0);
        row("update, up to date", false, "2.1", 0);
        row("update", false, "1.0", static_cast<int>(Run::Downloading));
    }

    void changelogFileIsWrittenInEveryMode()
    {
        QFETCH(bool, checkOnly);
        QFETCH(QString, installed);
        QFETCH(int, state);
        for (const QByteArray& payload : {QByteArray("bmV3"), QByteArray()}) {
            files::write(changelogFile("2.1"), "of an earlier run");
            Run run;
            run.version = installed;
            run.publish(editorRecord("2.1", "<changelog>" + payload + "</changelog>" +
                                                entry("missing", "1")));
            QCOMPARE(checkOnly ? run.check() : run.update(), state);
            QCOMPARE(changelogLeft("2.1"), payload.isEmpty() ? QByteArray("(none)") : payload);
        }
    }

    void unreadableManifestRemovesTheChangelogOfNoVersion_data()
    {
        QTest::addColumn<bool>("checkOnly");
        row("check", true);
        row("update", false);
    }

    void unreadableManifestRemovesTheChangelogOfNoVersion()
    {
        QFETCH(bool, checkOnly);
        files::write(changelogFile(""), "of an earlier run");
        files::write(changelogFile("2.1"), "of another version");
        Run run;
        run.publish("unreadable");
        QCOMPARE(checkOnly ? run.check() : run.update(), 0);
        QCOMPARE(changelogLeft(""), QByteArray("(none)"));
        QCOMPARE(changelogLeft("2.1"), QByteArray("of another version"));
    }

    void unreadableManifestWritesTheChangelogOfTheRecord()
    {
        Run run;
        run.publish("unreadable");
        run.state().programData.version = "9.9";
        run.state().programData.changelog = "aGVsZA==";
        QCOMPARE(run.check(), 0);
        QCOMPARE(changelogLeft("9.9"), QByteArray("aGVsZA=="));
    }

    void changelogFileComesAfterTheReport()
    {
        files::write(changelogFile("2.1"), "of an earlier run");
        HttpServer server;
        server.serve("/index.txt",
                     HttpReply::ok(editorRecord("2.1", "<changelog>bmV3</changelog>")));
        HostProcess host(16);
        UpdaterProcess updater;

        QVERIFY(host.lock());
        updater.start(
            {"-c", "-n", "Editor", "-v", "1.0", "-l", server.url("/index.txt"), "-s", host.key()});
        QTRY_COMPARE_WITH_TIMEOUT(host.waiting(), 1, 30000);
        QCOMPARE(changelogLeft("2.1"), QByteArray("of an earlier run"));
        QCOMPARE(host.dump(), HostProcess::untouched(16));

        QVERIFY(host.unlock());
        QVERIFY(updater.waitForEnd());
        QCOMPARE(updater.exitStatus(), 0);
        QCOMPARE(changelogLeft("2.1"), QByteArray("bmV3"));
        QCOMPARE(host.dump(), HostProcess::reported("2.1", false, 16));
    }

    // ---- The comparison of the versions

    void onlyAnotherVersionIsAnUpdate_data()
    {
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QByteArray>("published");
        QTest::addColumn<bool>("update");
        const auto add = [](const char* name, const char* installed, const char* published,
                            bool update) {
            row(name, QString::fromLatin1(installed), QByteArray(published), update);
        };
        add("equal", "2.1", "2.1", false);
        add("equal but for the case", "2.1a", "2.1A", false);
        add("equal but for the case, the other way", "2.1BETA", "2.1beta", false);
        add("equal but for the case of an umlaut", "2.1\xE4", "2.1\xC4", false);
        add("whitespace around the published one", "2.1", " 2.1\n", false);
        add("space after the installed one", "2.1 ", "2.1", true);
        add("newer", "1.0", "2.1", true);
        add("older", "3.0", "2.1", true);
        add("same number, written otherwise", "1.0", "1.00", true);
        add("shorter", "1.0.0", "1.0", true);
        add("longer", "1.0", "1.0.0", true);
        add("nothing installed", "", "2.1", true);
        add("space inside", "2.1 a", "2.1a", true);
    }

    void onlyAnotherVersionIsAnUpdate()
    {
        QFETCH(QString, installed);
        QFETCH(QByteArray, published);
        QFETCH(bool, update);
        Run run;
        run.version = installed;
        run.publish(editorRecord(published, entry("missing", "1")));
        QCOMPARE(run.update(), update ? static_cast<int>(Run::Downloading) : 0);
        QCOMPARE(run.dialog() != nullptr, update);
        QCOMPARE(downloadDirectories().size(), update ? 1 : 0);
        QCOMPARE(run.state().tempDir.isEmpty(), !update);
        QCOMPARE(run.fileRequests().size(), update ? 1 : 0);
        QVERIFY(QDir(run.baseDir).isEmpty());
    }

    void checkEndsWithTheReport_data()
    {
        QTest::addColumn<QString>("installed");
        row("up to date", "2.1");
        row("another version", "1.0");
    }

    void checkEndsWithTheReport()
    {
        QFETCH(QString, installed);
        Run run;
        run.version = installed;
        run.publish(anUpdate());
        run.state().currentFile = 7;
        run.state().downloadedFiles = 9;
        const QStringList before = files::list(tmpPath());
        QCOMPARE(run.check(), 0);
        QCoreApplication::processEvents();
        QCOMPARE(files::list(tmpPath()), before);
        QVERIFY(!run.dialog());
        QVERIFY(QApplication::topLevelWidgets().isEmpty());
        QCOMPARE(run.server.requests().size(), 1);
        QCOMPARE(run.selected(), QStringList{"missing.dat"});
        QVERIFY(run.state().tempDir.isEmpty());
        QCOMPARE(run.state().currentFile, 7);
        QCOMPARE(run.state().downloadedFiles, 9);
    }

    // ---- Runs without downloads

    void installationFollowsWhenThereIsNothingToDownload_data()
    {
        QTest::addColumn<QByteArray>("body");
        row("all files in place", editorRecord("2.1", entry("a.dat", "same")));
        row("no files listed", editorRecord("2.1"));
        row("unreadable manifest", QByteArray("unreadable"));
        row("record without a version", record("Editor", "<required>true</required>"));
    }

    void installationFollowsWhenThereIsNothingToDownload()
    {
        IN_OWN_PROCESS();
        QFETCH(QByteArray, body);
        const RelaunchedProgram program;
        Run run;
        run.install("a.dat", "same");
        run.programExe = run.baseDir + "/editor";
        program.install(run.programExe, "editor");
        run.publish(body);
        QCOMPARE(run.update(), 0);
        QVERIFY(!run.dialog());
        QVERIFY(QApplication::topLevelWidgets().isEmpty());
        QCOMPARE(run.server.requests().size(), 1);
        QTRY_COMPARE(program.starts().size(), 1);
        QCOMPARE(files::list(run.baseDir), (QStringList{"a.dat", "editor"}));
        QCOMPARE(files::read(run.baseDir + "/a.dat"), QByteArray("same"));
    }

    void noProgramIsStartedWithoutAnUpdate_data()
    {
        QTest::addColumn<bool>("checkOnly");
        QTest::addColumn<QString>("installed");
        row("check", true, "1.0");
        row("update, up to date", false, "2.1");
    }

    void noProgramIsStartedWithoutAnUpdate()
    {
        IN_OWN_PROCESS();
        QFETCH(bool, checkOnly);
        QFETCH(QString, installed);
        const RelaunchedProgram program;
        Run run;
        run.version = installed;
        run.programExe = run.baseDir + "/editor";
        program.install(run.programExe, "editor");
        run.publish(editorRecord("2.1"));
        QCOMPARE(checkOnly ? run.check() : run.update(), 0);
        // A process starts only one program. If it had started the editor, this one would not
        // start.
        program.install(run.baseDir + "/later", "later");
        QVERIFY(run.updater().startProgram(run.baseDir + "/later"));
        QTRY_COMPARE(program.starts().size(), 1);
        QVERIFY(program.starts().first().startsWith("later|"));
    }
};

UPDATER_TEST_MAIN(TestVersionCheck)
#include "moc_Run.cpp"
#include "tst_VersionCheck.moc"
