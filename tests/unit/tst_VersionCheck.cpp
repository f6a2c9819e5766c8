// The version check: what is asked of the server, how its answer is read and reported, which runs
// end there, and what an update prepares before its first download.

#include "updater/Updater.h"

#include "tests/support/HostProcess.h"
#include "tests/support/HttpServer.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/RelaunchedProgram.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"
#include "tests/support/UpdaterProcess.h"

#include <QNetworkReply>
#include <QPointer>
#include <QProgressDialog>
#include <QPushButton>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTimer>
#include <QTranslator>

#include <functional>
#include <memory>
#include <utility>

namespace {

/// What a test does to the installation in a directory before an update.
using Setup = std::function<void(const QString& baseDir)>;

QByteArray entry(const QString& name, const QString& sha1, quint64 size)
{
    return "\t<file>\n\t\t<name>" + name.toLatin1() + "</name>\n\t\t<sha1>" + sha1.toLatin1() +
           "</sha1>\n\t\t<size>" + QByteArray::number(size) + "</size>\n\t</file>\n";
}

/// The entry of a file that holds @p contents.
QByteArray entry(const QString& name, const QByteArray& contents)
{
    return entry(name, files::sha1(contents), static_cast<quint64>(contents.size()));
}

QByteArray record(const QByteArray& root, const QByteArray& inside)
{
    return '<' + root + ">\n" + inside + "</" + root + ">\n";
}

/// The manifest of a release of the program Editor.
QByteArray manifest(const QByteArray& version, const QByteArray& rest = QByteArray())
{
    return record("Editor", "\t<version>" + version + "</version>\n" + rest);
}

/// Any release that is not installed, with one file that is not either.
QByteArray anUpdate()
{
    return manifest("2.1", entry("missing.dat", "contents"));
}

/// The start of a report in a segment of @p size bytes whose rest is zero.
QByteArray reported(const QByteArray& text, char flag, int size)
{
    const QByteArray report = text + '\0' + flag + '\0';
    return report + QByteArray(size - static_cast<int>(report.size()), '\0');
}

quint32 crc32(const QByteArray& bytes)
{
    quint32 crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc ^= static_cast<quint8>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
    }
    return ~crc;
}

QByteArray littleEndian(quint32 number)
{
    QByteArray bytes;
    for (int i = 0; i < 4; ++i)
        bytes.append(static_cast<char>(number >> (8 * i)));
    return bytes;
}

/// Returns @p bytes as gzip packs them: the deflated data between a header and a trailer.
QByteArray gzip(const QByteArray& bytes)
{
    // Around the deflated data: the length (4 bytes), zlib's header (2) and its checksum (4).
    QByteArray deflated = qCompress(bytes).mid(6);
    deflated.chop(4);
    return QByteArray("\x1F\x8B\x08\0\0\0\0\0\0\x03", 10) + deflated + littleEndian(crc32(bytes)) +
           littleEndian(static_cast<quint32>(bytes.size()));
}

HttpReply gzipped(const QByteArray& body)
{
    HttpReply reply = HttpReply::ok(gzip(body));
    reply.headers.append("Content-Encoding: gzip");
    return reply;
}

QString unreachableUrl()
{
    QTcpServer closed;
    closed.listen(QHostAddress::LocalHost);
    return QStringLiteral("http://127.0.0.1:%1/index.txt").arg(closed.serverPort());
}

QString changelogPath(const QString& version)
{
    return QDir::temp().filePath("velmora_cl_" + version + ".dat");
}

/// What was written for the changelog of @p version; "(none)" when there is no file.
QByteArray changelogLeft(const QString& version)
{
    const QString path = changelogPath(version);
    return QFile::exists(path) ? files::read(path) : QByteArray("(none)");
}

/// The names of the download directories there are.
QStringList downloadDirectories()
{
    return QDir::temp().entryList({"wUp*"}, QDir::Dirs);
}

/// A translation of every text, which notes what it was asked for.
class NotingTranslator : public QTranslator
{
public:
    NotingTranslator() { QCoreApplication::installTranslator(this); }
    ~NotingTranslator() override { QCoreApplication::removeTranslator(this); }

    bool isEmpty() const override { return false; }

    QString translate(const char* context, const char* text, const char*, int) const override
    {
        m_asked.append(QStringLiteral("%1: %2").arg(context, text));
        return QStringLiteral("translated ") + text;
    }

    const QStringList& asked() const { return m_asked; }

private:
    mutable QStringList m_asked;
};

/// One run of the updater in this process, against a web server of its own. The server answers the
/// requests for files as late as the test wants.
class Run
{
public:
    /// How a run stands that has not asked for an exit status.
    enum Standing { Downloading = 200, Stuck = 201 };

    Run()
    {
        files::makeDirectory(baseDir);
        server.serveAllElse(HttpReply::hold(HttpReply::ok("")));
    }

    /// Lets the server answer with @p manifest.
    void publish(const QByteArray& manifest) { publish(HttpReply::ok(manifest)); }
    void publish(const HttpReply& reply) { server.serve("/releases/index.txt", reply); }

    void install(const QString& name, const QByteArray& contents) const
    {
        files::write(baseDir + '/' + name, contents);
    }

    /// Makes the object, with the options that are set now.
    Updater& updater()
    {
        if (!m_updater)
            m_updater =
                std::make_unique<Updater>(programName, baseDir, version, url, key, programExe);
        return *m_updater;
    }

    UpdaterProbe state() { return UpdaterProbe(updater()); }

    /// Each runs until the updater asks for an exit status, or for a file.
    /// @return The exit status, or how the run stands.
    int check() { return run(true); }
    int update() { return run(false); }

    /// Goes on with the event loop until @p action, done in it, makes the updater ask for an exit
    /// status.
    int goOn(const std::function<void()>& action)
    {
        QTimer::singleShot(0, m_updater.get(), action);
        return execute();
    }

    /// The names of the files that are to be downloaded.
    QStringList selected()
    {
        QStringList names;
        for (const ProgramFile& file : std::as_const(state().programData.files))
            names.append(file.name);
        return names;
    }

    QProgressDialog* dialog() { return state().progressDialog; }

    /// The requests for anything but the version file.
    QStringList fileRequests() const
    {
        QStringList requests = server.requests();
        requests.removeAll("/releases/index.txt");
        return requests;
    }

    TestDir dir;
    HttpServer server;
    QString programName = "Editor";
    QString baseDir = dir / "installed";
    QString version = "1.0";
    QString url = server.url("/releases/index.txt");
    QString key;
    QString programExe;

private:
    int run(bool checkOnly)
    {
        QTimer watch;
        const auto earlier = fileRequests().size();
        QObject::connect(&watch, &QTimer::timeout, &watch, [this, earlier] {
            if (fileRequests().size() > earlier)
                QCoreApplication::exit(Downloading);
        });
        watch.start(1);
        updater().start(checkOnly);
        return execute();
    }

    static int execute()
    {
        QTimer guard;
        QObject::connect(&guard, &QTimer::timeout, &guard, [] { QCoreApplication::exit(Stuck); });
        guard.start(60000);
        return QCoreApplication::exec();
    }

    std::unique_ptr<Updater> m_updater;
};

} // namespace

Q_DECLARE_METATYPE(HttpReply)
Q_DECLARE_METATYPE(Setup)

class TestVersionCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QApplication::setQuitOnLastWindowClosed(false); }

    // Every row has a temporary directory of its own.
    void init()
    {
        m_dir = std::make_unique<TestDir>();
        files::makeDirectory(*m_dir / "tmp");
        m_tmp = QDir(*m_dir / "tmp").canonicalPath();
        m_scope = std::make_unique<ScopedTmpDir>(m_tmp);
    }

    void cleanup()
    {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(QApplication::topLevelWidgets().isEmpty());
        m_scope.reset();
        m_dir.reset();
    }

    // The request.

    void urlIsUsedAsGiven_data()
    {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QString>("requested");
        row("file", "/releases/index.txt", "/releases/index.txt");
        row("directory gets no file name", "/releases/", "/releases/");
        row("name without a slash behind it", "/releases", "/releases");
        row("server alone", "", "/");
        row("query", "/index.txt?channel=beta&n=1", "/index.txt?channel=beta&n=1");
        row("query of a directory", "/?v=1.0", "/?v=1.0");
        row("percent escapes stay escaped", "/a%20b%2Fc/index.txt?q=%26",
            "/a%20b%2Fc/index.txt?q=%26");
        row("blanks are escaped", "/my releases/index.txt", "/my%20releases/index.txt");
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
        run.publish(manifest("2.1"));
        run.updater().start(true);
        const QPointer<QNetworkReply> reply = run.state().netManager.findChild<QNetworkReply*>();
        QVERIFY(reply);
        QTRY_VERIFY(!reply);
        QCOMPARE(run.state().programData.version, QString("2.1"));
        QCOMPARE(run.server.requests().size(), 1);
        QVERIFY(run.state().netManager.findChildren<QNetworkReply*>().isEmpty());
    }

    // The reading of the reply.

    void bodyIsReadHoweverTheTransferWent_data()
    {
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<QString>("version");
        const QByteArray whole = manifest("2.1");
        const QByteArray padded = whole + QByteArray(5000, ' ');
        const int length = static_cast<int>(whole.size());
        row("complete", HttpReply::ok(whole), "2.1");
        for (const int status : {201, 400, 401, 403, 404, 410, 500, 503}) {
            QTest::addRow("status %d", status) << HttpReply::error(status, whole) << "2.1";
            QTest::addRow("status %d without a body", status) << HttpReply::error(status) << "";
        }
        row("cut short behind the record", HttpReply::cutShort(padded, length + 10), "2.1");
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
        row("readable", manifest("2.1"), "2.1");
        row("unreadable", QByteArray("moved"), "");
        row("empty", QByteArray(), "");
    }

    void redirectIsJudgedByItsOwnBody()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, version);
        Run run;
        run.publish(HttpReply::redirect(run.server.url("/moved.txt"), body));
        run.server.serve("/moved.txt", HttpReply::ok(manifest("3.0")));
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
        QCOMPARE(host.dump(), reported("", '0', 16));
    }

    void textEndsAtTheFirstZeroByte_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QStringList>("names");
        const QByteArray zero(1, '\0');
        const QByteArray one = entry("one", "1");
        row("behind the record", manifest("2.1", one) + zero, "2.1", QStringList{"one"});
        row("before the record", zero + manifest("2.1", one), "", QStringList());
        row("inside the record", manifest("2.1", one + zero + entry("two", "2")), "",
            QStringList());
        row("between two records", record("Other", "<version>9</version>") + zero + manifest("2.1"),
            "", QStringList());
        row("two of them: the first counts", manifest("2.1") + zero + "text" + zero, "2.1",
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
        run.publish(manifest(version));
        QCOMPARE(run.check(), 0);
        QCOMPARE(run.state().programData.version, QString::fromLatin1(version));
        QCOMPARE(host.dump(), reported(version, '0', 16));
    }

    void packedBodyIsUnpacked_data()
    {
        QTest::addColumn<int>("blanks");
        row("small", 0);
        row("below 10 MiB, high ratio", 9 * 1024 * 1024);
        row("past 10 MiB, high ratio", 24 * 1024 * 1024);
    }

    void packedBodyIsUnpacked()
    {
        QFETCH(int, blanks);
        Run run;
        run.publish(gzipped(QByteArray(blanks, ' ') + manifest("2.1")));
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
        row("none of the two", "Edit", "");
    }

    void recordOfTheProgramIsRead()
    {
        QFETCH(QString, name);
        QFETCH(QString, version);
        Run run;
        run.programName = name;
        run.publish(manifest("2.1") + '\n' + record("Viewer", "<version>7.5</version>"));
        QCOMPARE(run.check(), 0);
        QCOMPARE(run.state().programData.version, version);
    }

    // The report.

    void publishedVersionAndFlagAreReported_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<char>("flag");
        row("required", manifest("2.1", "<required>true</required>"), QByteArray("2.1"), '1');
        row("not required", manifest("2.1", "<required>false</required>"), QByteArray("2.1"), '0');
        row("no word of it", manifest("2.1"), QByteArray("2.1"), '0');
        row("trimmed version", manifest(" \t2.1\n "), QByteArray("2.1"), '0');
        row("same version as installed", manifest("1.0"), QByteArray("1.0"), '0');
        row("no record", QByteArray("<html></html>"), QByteArray(), '0');
        row("blank record", record("Editor", " "), QByteArray(), '0');
        row("record without a version", record("Editor", "<required>true</required>"), QByteArray(),
            '0');
        row("blank version", manifest(" ", "<required>true</required>"), QByteArray(), '0');
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
            QCOMPARE(host.dump(), reported(text, flag, 16));
        }
    }

    void runGoesOnWithoutReport_data()
    {
        QTest::addColumn<int>("segmentSize");
        row("no key", -1);
        row("no segment", 0);
        row("segment too small", 5);
    }

    void runGoesOnWithoutReport()
    {
        QFETCH(int, segmentSize);
        std::unique_ptr<HostProcess> host;
        if (segmentSize > 0)
            host = std::make_unique<HostProcess>(segmentSize);
        Run run;
        if (segmentSize >= 0)
            run.key = host ? host->key() : HostProcess::unusedKey();
        run.publish(manifest("2.1", "<changelog>bmV3</changelog>" + entry("missing", "1")));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(changelogLeft("2.1"), QByteArray("bmV3"));
        if (host)
            QCOMPARE(host->dump(), HostProcess::untouched(segmentSize));
    }

    // An unreadable version file.

    void unreadableManifestReportsWhatTheRecordHolds_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<QString>("held");
        QTest::addColumn<bool>("required");
        QTest::addColumn<QByteArray>("expected");
        row("fresh record", 16, "", false, reported("", '0', 16));
        row("flag of the record", 16, "", true, reported("", '1', 16));
        row("version of the record", 16, "9.9", true, reported("9.9", '1', 16));
        // Where only the first of the two reports fits, it stays.
        row("error is reported first", 8, "10.0.0", true, reported("ERROR", '0', 8));
        row("segment too small for both", 7, "10.0.0", true, HostProcess::untouched(7));
        row("segment too small for the error", 6, "9.9", true, reported("9.9", '1', 6));
    }

    void unreadableManifestReportsWhatTheRecordHolds()
    {
        QFETCH(int, size);
        QFETCH(QString, held);
        QFETCH(bool, required);
        QFETCH(QByteArray, expected);
        HostProcess host(size);
        Run run;
        run.key = host.key();
        run.publish("unreadable");
        run.state().programData.version = held;
        run.state().programData.required = required;
        QCOMPARE(run.check(), 0);
        QCOMPARE(host.dump(), expected);
    }

    void readableManifestNeverReportsAnError()
    {
        HostProcess host(8);
        Run run;
        run.key = host.key();
        run.publish(manifest("10.0.0"));
        QCOMPARE(run.check(), 0);
        QCOMPARE(host.dump(), HostProcess::untouched(8));
    }

    void unreadableManifestEndsLikeAnyOther_data()
    {
        QTest::addColumn<bool>("checkOnly");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("held");
        QTest::addColumn<QStringList>("directories");
        row("check", true, "1.0", "", QStringList());
        row("update of the version held", false, "9.9", "9.9", QStringList());
        row("update of no version", false, "", "", QStringList());
        row("update goes on to the installation", false, "1.0", "", QStringList{"wUp"});
        row("update, a version is held", false, "1.0", "9.9", QStringList{"wUp9.9"});
    }

    void unreadableManifestEndsLikeAnyOther()
    {
        QFETCH(bool, checkOnly);
        QFETCH(QString, installed);
        QFETCH(QString, held);
        QFETCH(QStringList, directories);
        Run run;
        run.version = installed;
        run.publish("unreadable");
        run.state().programData.version = held;
        QCOMPARE(checkOnly ? run.check() : run.update(), 0);
        QCOMPARE(downloadDirectories(), directories);
        QVERIFY(!run.dialog());
        QCOMPARE(run.server.requests().size(), 1);
    }

    void exitStatusOneStandsWhenNothingReplacesIt()
    {
        Run run;
        run.publish("unreadable");
        run.state().programData.files.append({"missing", files::sha1("1"), 1});
        QCOMPARE(run.update(), 1);
        // The run has gone on all the same, as far as the first download.
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

    // The changelog file.

    void changelogFileIsWrittenInEveryMode_data()
    {
        QTest::addColumn<bool>("checkOnly");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<int>("standing");
        row("check", true, "1.0", 0);
        row("check, up to date", true, "2.1", 0);
        row("update, up to date", false, "2.1", 0);
        row("update", false, "1.0", static_cast<int>(Run::Downloading));
    }

    void changelogFileIsWrittenInEveryMode()
    {
        QFETCH(bool, checkOnly);
        QFETCH(QString, installed);
        QFETCH(int, standing);
        for (const QByteArray& payload : {QByteArray("bmV3"), QByteArray()}) {
            files::write(changelogPath("2.1"), "of an earlier run");
            Run run;
            run.version = installed;
            run.publish(
                manifest("2.1", "<changelog>" + payload + "</changelog>" + entry("missing", "1")));
            QCOMPARE(checkOnly ? run.check() : run.update(), standing);
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
        files::write(changelogPath(""), "of an earlier run");
        files::write(changelogPath("2.1"), "of another version");
        Run run;
        run.publish("unreadable");
        QCOMPARE(checkOnly ? run.check() : run.update(), 0);
        QCOMPARE(changelogLeft(""), QByteArray("(none)"));
        QCOMPARE(changelogLeft("2.1"), QByteArray("of another version"));
    }

    void unreadableManifestWritesTheChangelogThatIsHeld()
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
        files::write(changelogPath("2.1"), "of an earlier run");
        HttpServer server;
        server.serve("/index.txt", HttpReply::ok(manifest("2.1", "<changelog>bmV3</changelog>")));
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
        QCOMPARE(host.dump(), reported("2.1", '0', 16));
    }

    // The comparison of the versions.

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
        add("blanks around the published one", "2.1", " 2.1\n", false);
        add("blank around the installed one", "2.1 ", "2.1", true);
        add("newer", "1.0", "2.1", true);
        add("older", "3.0", "2.1", true);
        add("same number, written otherwise", "1.0", "1.00", true);
        add("shorter", "1.0.0", "1.0", true);
        add("longer", "1.0", "1.0.0", true);
        add("nothing installed", "", "2.1", true);
        add("blank inside", "2.1 a", "2.1a", true);
    }

    void onlyAnotherVersionIsAnUpdate()
    {
        QFETCH(QString, installed);
        QFETCH(QByteArray, published);
        QFETCH(bool, update);
        Run run;
        run.version = installed;
        run.publish(manifest(published, entry("missing", "1")));
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
        const QStringList before = files::list(m_tmp);
        QCOMPARE(run.check(), 0);
        QCoreApplication::processEvents();
        QCOMPARE(files::list(m_tmp), before);
        QVERIFY(!run.dialog());
        QVERIFY(QApplication::topLevelWidgets().isEmpty());
        QCOMPARE(run.server.requests().size(), 1);
        QCOMPARE(run.selected(), QStringList{"missing.dat"});
        QVERIFY(run.state().tempDir.isEmpty());
        QCOMPARE(run.state().currentFile, 7);
        QCOMPARE(run.state().downloadedFiles, 9);
    }

    // The download directory.

    void downloadDirectoryIsNamedAfterTheRelease_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("version");
        QTest::addColumn<QString>("directory");
        const auto add = [](const char* name, const char* program, const char* version,
                            const char* directory) {
            row(name, QString(program), QByteArray(version), QString::fromUtf8(directory));
        };
        add("plain", "Editor", "2.1", "wUpEditor2.1");
        add("blanks inside", "My Editor", "2.1 beta", "wUpMy Editor2.1 beta");
        add("blanks around are trimmed", " Editor ", " 2.1 ", "wUpEditor2.1");
        add("case of the option, not of the file", "eDITOR", "2.1", "wUpeDITOR2.1");
        add("Latin-1", "Editor", "2.\xE4", "wUpEditor2.\xC3\xA4");
        add("slash makes a subdirectory", "Editor", "2/1", "wUpEditor2/1");
        // The name is filled in first, and its place markers take part in the second step.
        add("first marker in the name", "A%1B", "2.1", "wUpA2.1B%2");
        add("second marker in the name", "A%2B", "2.1", "wUpA2.1B2.1");
        add("third marker in the name", "A%3B", "2.1", "wUpA%3B2.1");
        add("both markers in the name", "%1%2", "2.1", "wUp2.1%2%2");
        add("local marker in the name", "A%L1B", "2.1", "wUpA2.1B%2");
        add("percent sign in the name", "100%", "2.1", "wUp100%2.1");
        add("first marker in the version", "Editor", "2%1", "wUpEditor2%1");
        add("second marker in the version", "Editor", "2%2", "wUpEditor2%2");
        add("markers in both", "A%1", "2%1%2", "wUpA2%1%2%2");
    }

    void downloadDirectoryIsNamedAfterTheRelease()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, version);
        QFETCH(QString, directory);
        for (const char* ending : {"", "/"}) {
            const ScopedTmpDir tmp(m_tmp + ending);
            Run run;
            run.programName = name;
            run.publish(record(name.toLatin1(),
                               "<version>" + version + "</version>" + entry("missing", "1")));
            QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
            QCOMPARE(run.state().tempDir, m_tmp + '/' + directory);
            QVERIFY(QFileInfo(m_tmp + '/' + directory).isDir());
        }
    }

    void downloadDirectoryIsMadeForNothing_data()
    {
        QTest::addColumn<QByteArray>("entries");
        row("no files listed", QByteArray());
        row("all files in place", entry("a.dat", "same"));
    }

    void downloadDirectoryIsMadeForNothing()
    {
        QFETCH(QByteArray, entries);
        Run run;
        run.install("a.dat", "same");
        run.publish(manifest("2.1", entries));
        QCOMPARE(run.update(), 0);
        QCOMPARE(downloadDirectories(), QStringList{"wUpEditor2.1"});
        QCOMPARE(run.state().tempDir, m_tmp + "/wUpEditor2.1");
    }

    void downloadDirectoryMayBeThere()
    {
        files::write(m_tmp + "/wUpEditor2.1/old.dat", "old");
        Run run;
        run.publish(anUpdate());
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(files::read(m_tmp + "/wUpEditor2.1/old.dat"), QByteArray("old"));
    }

    void downloadDirectoryThatCannotBeMadeIsNoMatter()
    {
        files::write(m_tmp + "/wUpEditor2.1", "in the way");
        Run run;
        run.publish(anUpdate());
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.state().tempDir, m_tmp + "/wUpEditor2.1");
    }

    // The selection of the files.

    void filesInPlaceAreNotDownloaded_data()
    {
        QTest::addColumn<Setup>("setup");
        QTest::addColumn<bool>("download");
        const auto add = [](const char* name, bool download, const Setup& setup) {
            row(name, setup, download);
        };
        add("missing", true, [](const QString&) {});
        add("identical", false,
            [](const QString& dir) { files::write(dir + "/a.dat", "contents"); });
        add("other contents, same size", true,
            [](const QString& dir) { files::write(dir + "/a.dat", "Contents"); });
        add("shorter", true, [](const QString& dir) { files::write(dir + "/a.dat", "content"); });
        add("longer", true, [](const QString& dir) { files::write(dir + "/a.dat", "contents "); });
        add("empty", true, [](const QString& dir) { files::write(dir + "/a.dat", ""); });
        add("directory", true, [](const QString& dir) { files::makeDirectory(dir + "/a.dat"); });
        add("link to an identical file", false, [](const QString& dir) {
            files::write(dir + "/target", "contents");
            files::link("target", dir + "/a.dat");
        });
        add("link to another file", true, [](const QString& dir) {
            files::write(dir + "/target", "Contents");
            files::link("target", dir + "/a.dat");
        });
        add("broken link", true, [](const QString& dir) { files::link("gone", dir + "/a.dat"); });
        add("identical, name in another case", true,
            [](const QString& dir) { files::write(dir + "/A.dat", "contents"); });
        add("identical, elsewhere", true,
            [](const QString& dir) { files::write(dir + "/sub/a.dat", "contents"); });
    }

    void filesInPlaceAreNotDownloaded()
    {
        QFETCH(Setup, setup);
        QFETCH(bool, download);
        Run run;
        setup(run.baseDir);
        run.publish(manifest("2.1", entry("a.dat", "contents")));
        QCOMPARE(run.update(), download ? static_cast<int>(Run::Downloading) : 0);
        QCOMPARE(run.selected(), download ? QStringList{"a.dat"} : QStringList());
    }

    void unreadableFileIsDownloaded()
    {
        const EnforcedPermissions permissions;
        if (!permissions.active())
            QSKIP(NO_PERMISSIONS);
        Run run;
        run.install("a.dat", "contents");
        const ScopedMode locked(run.baseDir + "/a.dat", 0);
        run.publish(manifest("2.1", entry("a.dat", "contents")));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.selected(), QStringList{"a.dat"});
    }

    void directoryOfTheRightSizeIsDownloaded()
    {
        Run run;
        files::makeDirectory(run.baseDir + "/a.dat");
        const qint64 size = QFileInfo(run.baseDir + "/a.dat").size();
        run.publish(manifest("2.1", entry("a.dat", files::sha1(""), static_cast<quint64>(size))));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.selected(), QStringList{"a.dat"});
    }

    void entryDecidesWhatIsIdentical_data()
    {
        QTest::addColumn<QString>("sha1");
        QTest::addColumn<quint64>("size");
        QTest::addColumn<bool>("download");
        const QString sha1 = files::sha1("contents");
        row("as it is", sha1, quint64(8), false);
        row("digest in upper case", sha1.toUpper(), quint64(8), false);
        row("digest in both cases", sha1.left(20).toUpper() + sha1.mid(20), quint64(8), false);
        row("another digest", files::sha1("Contents"), quint64(8), true);
        row("digest cut short", sha1.left(39), quint64(8), true);
        row("no digest at all", "x", quint64(8), true);
        row("another size", sha1, quint64(9), true);
        row("size 0", sha1, quint64(0), true);
        row("size beyond 32 bits", sha1, (quint64(1) << 32) + 8, true);
        row("largest size", sha1, ~quint64(0), true);
    }

    void entryDecidesWhatIsIdentical()
    {
        QFETCH(QString, sha1);
        QFETCH(quint64, size);
        QFETCH(bool, download);
        Run run;
        run.install("a.dat", "contents");
        run.publish(manifest("2.1", entry("a.dat", sha1, size)));
        QCOMPARE(run.update(), download ? static_cast<int>(Run::Downloading) : 0);
        QCOMPARE(run.selected(), download ? QStringList{"a.dat"} : QStringList());
    }

    void emptyFileCanBeInPlace()
    {
        Run run;
        run.install("a.dat", "");
        run.publish(manifest("2.1", entry("a.dat", "")));
        QCOMPARE(run.update(), 0);
        QCOMPARE(run.selected(), QStringList());
    }

    void filesAreLookedForInTheBaseDirectory_data()
    {
        QTest::addColumn<QString>("ending");
        QTest::addColumn<QString>("place");
        row("no separator at the end", "", "/");
        row("slash at the end", "/", "/");
        row("two slashes at the end", "//", "/");
        // Nothing is added to a backslash, which is a letter of the name here.
        row("backslash at the end", "\\", "\\");
    }

    void filesAreLookedForInTheBaseDirectory()
    {
        QFETCH(QString, ending);
        QFETCH(QString, place);
        Run run;
        files::write(run.baseDir + place + "a.dat", "1");
        files::write(run.baseDir + place + "sub/b.dat", "2");
        run.baseDir += ending;
        run.publish(manifest("2.1", entry("a.dat", "1") + entry("sub/b.dat", "2")));
        QCOMPARE(run.update(), 0);
        QCOMPARE(run.selected(), QStringList());
    }

    void emptyBaseDirectoryIsTheRoot()
    {
        Run run;
        run.install("a.dat", "1");
        const QString fromRoot = run.baseDir.mid(1) + "/a.dat";
        run.baseDir.clear();
        run.publish(manifest("2.1", entry(fromRoot, "1")));
        QCOMPARE(run.update(), 0);
        QCOMPARE(run.selected(), QStringList());
    }

    void selectionKeepsTheOrder_data()
    {
        QTest::addColumn<QByteArray>("entries");
        QTest::addColumn<QStringList>("selected");
        const QByteArray here = entry("here", "here");
        const auto away = [](const char* name) {
            return entry(name, "away");
        };
        row("first in place", here + away("b") + away("a"), QStringList{"b", "a"});
        row("last in place", away("b") + away("a") + here, QStringList{"b", "a"});
        row("between", away("b") + here + away("a"), QStringList{"b", "a"});
        row("neighbours in place", away("c") + here + here + away("a") + here + away("b"),
            QStringList{"c", "a", "b"});
        row("none in place", away("c") + away("a") + away("b"), QStringList{"c", "a", "b"});
        row("one missing file twice", away("a") + here + away("a"), QStringList{"a", "a"});
        row("one file in place, listed with other contents, too",
            here + entry("here", "else") + here, QStringList{"here"});
    }

    void selectionKeepsTheOrder()
    {
        QFETCH(QByteArray, entries);
        QFETCH(QStringList, selected);
        Run run;
        run.install("here", "here");
        run.publish(manifest("2.1", entries));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.selected(), selected);
    }

    void everySecondFileOfALargeReleaseIsSelected()
    {
        constexpr int pairs = 50000;
        Run run;
        run.install("here", "here");
        const QByteArray here = entry("here", "here");
        QByteArray entries;
        QStringList missing;
        for (int i = 0; i < pairs; ++i) {
            missing.append(QStringLiteral("away/%1.dat").arg(i));
            entries += entry(missing.last(), "away") + here;
        }
        run.publish(manifest("2.1", entries));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.selected(), missing);
        QCOMPARE(run.dialog()->maximum(), pairs);
    }

    // The start of the downloads.

    void downloadsBeginWithTheFirstFile()
    {
        Run run;
        run.publish(manifest("2.1", entry("a", "1") + entry("b", "2")));
        run.state().currentFile = 1;
        run.state().downloadedFiles = 9;
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.state().currentFile, 0);
        QCOMPARE(run.state().downloadedFiles, 0);
        QCOMPARE(run.fileRequests(), QStringList{"/releases/a"});
        QCOMPARE(run.dialog()->labelText(), QString("Downloading file 1 of 2 (0.00 MB left)"));
    }

    void positionIsZeroedForNothing()
    {
        Run run;
        run.publish(manifest("2.1"));
        run.state().currentFile = 7;
        run.state().downloadedFiles = 9;
        QCOMPARE(run.update(), 0);
        QCOMPARE(run.state().currentFile, 0);
        QCOMPARE(run.state().downloadedFiles, 0);
    }

    void installationFollowsWhenThereIsNothingToDownload_data()
    {
        QTest::addColumn<QByteArray>("body");
        row("all files in place", manifest("2.1", entry("a.dat", "same")));
        row("no files listed", manifest("2.1"));
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
        run.publish(manifest("2.1"));
        QCOMPARE(checkOnly ? run.check() : run.update(), 0);
        // A process starts one program only: had it started the editor, this one would not start.
        program.install(run.baseDir + "/later", "later");
        QVERIFY(run.updater().startProgram(run.baseDir + "/later"));
        QTRY_COMPARE(program.starts().size(), 1);
        QVERIFY(program.starts().first().startsWith("later|"));
    }

    // The progress dialog.

    void dialogShowsTheDownloads()
    {
        Run run;
        run.install("here", "here");
        run.publish(manifest("2.1", entry("a", "x", 1048576) + entry("here", "here") +
                                        entry("b", "x", 524288)));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QProgressDialog* dialog = run.dialog();
        QVERIFY(dialog);
        QVERIFY(dialog->isVisible());
        QVERIFY(!dialog->parent());
        QVERIFY(dialog->isWindow());
        QCOMPARE(dialog->minimum(), 0);
        QCOMPARE(dialog->maximum(), 2);
        QCOMPARE(dialog->labelText(), QString("Downloading file 1 of 2 (1.50 MB left)"));
        const auto* cancel = dialog->findChild<QPushButton*>();
        QVERIFY(cancel);
        QCOMPARE(cancel->text(), QString("Cancel"));
        QCOMPARE(dialog->windowFlags(), QProgressDialog().windowFlags() | Qt::WindowStaysOnTopHint);
        QCOMPARE(dialog->windowModality(), Qt::NonModal);
        QCOMPARE(QApplication::topLevelWidgets(), QWidgetList{dialog});
    }

    void cancelEndsTheRunWithZero_data()
    {
        QTest::addColumn<QByteArray>("way");
        row("button", QByteArray("button"));
        row("closing the window", QByteArray("close"));
        row("signal", QByteArray("signal"));
    }

    void cancelEndsTheRunWithZero()
    {
        QFETCH(QByteArray, way);
        Run run;
        run.publish(anUpdate());
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QProgressDialog* dialog = run.dialog();
        const int status = run.goOn([dialog, way] {
            if (way == "button")
                dialog->findChild<QPushButton*>()->click();
            else if (way == "close")
                dialog->close();
            else
                emit dialog->canceled();
        });
        QCOMPARE(status, 0);
        QVERIFY(QDir(run.baseDir).isEmpty());
    }

    void dialogThatIsThereIsKept()
    {
        Run run;
        run.publish(anUpdate());
        const QPointer<QProgressDialog> earlier(new QProgressDialog("earlier", "stop", 3, 4));
        earlier->setMinimumDuration(60000);
        run.state().progressDialog = earlier;
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.dialog(), earlier.data());
        QCOMPARE(QApplication::topLevelWidgets(), QWidgetList{earlier});
        // It is not touched, either.
        QVERIFY(!earlier->isVisible());
        QCOMPARE(earlier->labelText(), QString("earlier"));
        QCOMPARE(earlier->minimum(), 3);
        QCOMPARE(earlier->maximum(), 4);
        QVERIFY(!(earlier->windowFlags() & Qt::WindowStaysOnTopHint));
    }

    void labelOfASecondRunCountsAllItsFiles()
    {
        constexpr int mebibyte = 1048576;
        Run run;
        run.publish(manifest("2.1", entry("a", "x", 5 * mebibyte) + entry("b", "x", mebibyte)));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.dialog()->labelText(), QString("Downloading file 1 of 2 (6.00 MB left)"));
        run.publish(manifest("2.2", entry("a", "x", mebibyte) + entry("b", "x", 2 * mebibyte) +
                                        entry("c", "x", 4 * mebibyte)));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        run.state().currentFile = 1; // The second run adds its files to those of the first.
        run.updater().updateProgressLabel();
        QCOMPARE(run.dialog()->labelText(), QString("Downloading file 2 of 5 (8.00 MB left)"));
    }

    void labelCountsTheFilesOfACheckInBetween()
    {
        constexpr int mebibyte = 1048576;
        Run run;
        run.publish(manifest("2.1", entry("a", "x", 5 * mebibyte) + entry("b", "x", mebibyte)));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        run.publish(manifest("2.2", entry("c", "x", 2 * mebibyte)));
        QCOMPARE(run.check(), 0);
        run.state().currentFile = 1; // The check has added its file.
        run.updater().updateProgressLabel();
        QCOMPARE(run.dialog()->labelText(), QString("Downloading file 2 of 3 (3.00 MB left)"));
    }

    void dialogTextsAreTranslated()
    {
        const NotingTranslator translator;
        Run run;
        run.publish(anUpdate());
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.dialog()->findChild<QPushButton*>()->text(), QString("translated Cancel"));
        QStringList own = translator.asked().filter(QRegularExpression("^Updater: "));
        own.sort();
        QCOMPARE(own, (QStringList{"Updater: Cancel", "Updater: Update is in progress"}));
        // The label that follows is not looked up.
        QCOMPARE(run.dialog()->labelText(), QString("Downloading file 1 of 1 (0.00 MB left)"));
        QVERIFY(translator.asked().filter("Downloading").isEmpty());
    }

private:
    std::unique_ptr<TestDir> m_dir;
    QString m_tmp;
    std::unique_ptr<ScopedTmpDir> m_scope;
};

UPDATER_TEST_MAIN(TestVersionCheck)
#include "tst_VersionCheck.moc"
