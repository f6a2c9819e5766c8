// The downloads: one file after the other, each verified before it is saved, with the progress
// dialog kept up to date and an end after three failures in a row.

#include "updater/Updater.h"

#include "manifest/ManifestText.h"

#include "tests/support/HttpServer.h"
#include "tests/support/MessageBoxes.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"

#include <QLocale>
#include <QNetworkReply>
#include <QProgressDialog>
#include <QTimer>
#include <QTranslator>

#include <functional>
#include <utility>

Q_DECLARE_METATYPE(HttpReply)
Q_DECLARE_METATYPE(ProgramFile)

namespace {

constexpr quint64 mebibyte = 1048576;
constexpr quint64 gibibyte = 1024 * mebibyte;

/// Stands for the exit status of a run that did not end by itself.
constexpr int endless = 124;

ProgramFile entryFor(const QString& name, const QByteArray& contents)
{
    return {name, files::sha1(contents), static_cast<quint64>(contents.size())};
}

/// Contents that no compression or line-end conversion leaves alone.
QByteArray noise(int size)
{
    QByteArray bytes;
    bytes.reserve(size);
    quint32 state = 1;
    for (int i = 0; i < size; ++i) {
        state = state * 1664525 + 1013904223;
        bytes.append(static_cast<char>(state >> 24));
    }
    return bytes;
}

/// What a progress dialog shows, in one line.
QString looksOf(const QProgressDialog& dialog)
{
    return QStringLiteral("%1 | %2 | %3")
        .arg(QString::number(dialog.value()), dialog.labelText(),
             QString(dialog.isVisible() ? "shown" : "hidden"));
}

QString warningWithCode(int code)
{
    return QStringLiteral("warning|Error|An error occured while downloading the update.\n"
                          "Error code: ") +
           QString::number(code);
}

QString damageOf(const QString& shownName)
{
    return QStringLiteral("critical|Error|An error occured while downloading the file \"") +
           shownName + QStringLiteral("\"\n\nAborting the update.");
}

/// The files of an update, a server that offers them, and the run that downloads them. The base
/// directory is a link to nowhere, so that the installation fails and what was saved stays.
class Download
{
public:
    Download()
        : updater("Editor", dir / "nowhere", "1.0", server.url("/r/index.txt"), QString(),
                  QString())
        , state(updater)
    {
        files::link("missing/directory", dir / "nowhere");
        state.tempDir = dir / "downloads";
    }

    void list(const ProgramFile& file) { state.programData.files.append(file); }

    /// Answers the requests for the file @p name with @p replies in turn, the last one for good.
    void answer(const QString& name, const QList<HttpReply>& replies)
    {
        server.serveInTurn(pathOf(name), replies);
    }

    void offer(const QString& name, const QByteArray& contents)
    {
        list(entryFor(name, contents));
        answer(name, {HttpReply::ok(contents)});
    }

    /// The path that the server is asked for when the file @p name is fetched.
    QString pathOf(const QString& name) const
    {
        return QUrl(server.url("/r/") + name)
            .toString(QUrl::FullyEncoded | QUrl::RemoveScheme | QUrl::RemoveAuthority |
                      QUrl::RemoveFragment);
    }

    /// Gives the run a dialog like that of the version check.
    QProgressDialog* openDialog()
    {
        state.progressDialog = new QProgressDialog(
            "An update", "Cancel", 0, static_cast<int>(state.programData.files.size()));
        state.progressDialog->show();
        return state.progressDialog;
    }

    /// Makes the files listed so far a release for run(), which then begins with the version check.
    void publish()
    {
        ProgramData release = state.programData;
        release.name = "Editor";
        release.version = "2.0";
        QString text;
        manifest::write(release, text);
        server.serve("/r/index.txt", HttpReply::ok(text.toUtf8()));
        state.programData = ProgramData();
        m_begin = [this] {
            updater.start(false);
        };
    }

    /// Runs to the end and returns the exit status.
    int run()
    {
        bool ended = true;
        QTimer guard;
        QObject::connect(&guard, &QTimer::timeout, &guard, [&ended] {
            ended = false;
            QCoreApplication::exit(endless);
        });
        guard.start(60000);
        QTimer::singleShot(0, &updater, m_begin);
        const int status = QCoreApplication::exec();
        return ended ? status : endless;
    }

    /// Downloads the files listed so far and stops short of the installation.
    bool saveAll()
    {
        list(entryFor("behind-all", "x"));
        answer("behind-all", {HttpReply::hold(HttpReply::ok("x"))});
        updater.downloadNewProgramData();
        return waitForRequest("behind-all");
    }

    bool waitForRequest(const QString& name)
    {
        return QTest::qWaitFor([&] { return server.requestsFor(pathOf(name)) > 0; }, 30000);
    }

    /// Calls @p action before the run handles a reply.
    void beforeEachReply(const std::function<void()>& action)
    {
        QObject::connect(&state.netManager, &QNetworkAccessManager::finished, &updater, action);
    }

    int transfersRunning() const
    {
        int running = 0;
        const auto replies = state.netManager.findChildren<QNetworkReply*>();
        for (const QNetworkReply* reply : replies)
            running += reply->isRunning();
        return running;
    }

    int repliesLeft() const
    {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return static_cast<int>(state.netManager.findChildren<QNetworkReply*>().size());
    }

    QStringList saved() const { return files::list(dir / "downloads"); }

    HttpServer server;
    TestDir dir;
    Updater updater;
    UpdaterProbe state;
    MessageBoxes boxes;

private:
    std::function<void()> m_begin = [this] {
        updater.downloadNewProgramData();
    };
};

/// What the server does with @p contents when it is asked for them:
///   ok  sends them
///   T   fails the transfer, with the right contents as the page of the error
///   S   sends one byte less
///   L   sends one byte more
///   H   sends as many bytes, the last one changed
HttpReply replyWith(const QString& outcome, const QByteArray& contents)
{
    if (outcome == "T")
        return HttpReply::error(404, contents);
    if (outcome == "S")
        return HttpReply::ok(contents.left(contents.size() - 1));
    if (outcome == "L")
        return HttpReply::ok(contents + '+');
    if (outcome == "H")
        return HttpReply::ok(contents.left(contents.size() - 1) + '!');
    return HttpReply::ok(contents);
}

QList<HttpReply> repliesWith(const QString& outcomes, const QByteArray& contents)
{
    QList<HttpReply> replies;
    const QStringList each = outcomes.split(' ', Qt::SkipEmptyParts);
    for (const QString& outcome : each)
        replies.append(replyWith(outcome, contents));
    return replies;
}

/// Lists the files "1", "2", ... and has the server do with each what @p script says, such as
/// "T ok | ok".
void follow(Download& download, const QString& script)
{
    const QStringList outcomes = script.split('|');
    for (int i = 0; i < outcomes.size(); ++i) {
        const QString name = QString::number(i + 1);
        const QByteArray contents = "contents of " + name.toUtf8();
        download.list(entryFor(name, contents));
        download.answer(name, repliesWith(outcomes.at(i), contents));
    }
}

/// The files asked for, in order, such as "1 1 2".
QString requestsOf(const Download& download)
{
    return download.server.requests().join(' ').remove("/r/");
}

quint32 crc32(const QByteArray& bytes)
{
    quint32 crc = 0xFFFFFFFFU;
    for (const char byte : bytes) {
        crc ^= static_cast<quint8>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) ? 0xEDB88320U : 0U);
    }
    return ~crc;
}

QByteArray littleEndian(quint32 number)
{
    QByteArray bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes.append(static_cast<char>(number >> shift));
    return bytes;
}

QByteArray gzip(const QByteArray& contents)
{
    // Of what qCompress() gives, without the length and the frame of another format.
    const QByteArray compressed = qCompress(contents);
    return QByteArray("\x1f\x8b\x08\0\0\0\0\0\0\xff", 10) +
           compressed.mid(6, compressed.size() - 10) + littleEndian(crc32(contents)) +
           littleEndian(static_cast<quint32>(contents.size()));
}

HttpReply gzipped(const QByteArray& contents)
{
    HttpReply reply = HttpReply::ok(gzip(contents));
    reply.headers.append("Content-Encoding: gzip");
    return reply;
}

/// Puts the updater's texts in brackets, and remembers what it was asked for.
class BracketTranslator : public QTranslator
{
public:
    BracketTranslator() { QCoreApplication::installTranslator(this); }
    ~BracketTranslator() override { QCoreApplication::removeTranslator(this); }

    bool isEmpty() const override { return false; }

    QString translate(const char* context, const char* text, const char*, int) const override
    {
        m_asked.append(QString::fromUtf8(text));
        if (qstrcmp(context, "Updater") != 0)
            return QString();
        return '[' + QString::fromUtf8(text) + ']';
    }

    /// The texts looked up so far, in any context.
    const QStringList& asked() const { return m_asked; }

private:
    mutable QStringList m_asked;
};

/// What keeps a file from being opened under the download directory.
enum Obstacle { DirectoryAtTheTarget, FileForItsDirectory, FileForTheDownloads };

void putInTheWay(Obstacle obstacle, const TestDir& dir)
{
    if (obstacle == DirectoryAtTheTarget)
        files::makeDirectory(dir / "downloads/sub/a.dat");
    else if (obstacle == FileForItsDirectory)
        files::write(dir / "downloads/sub", "in the way");
    else
        files::write(dir / "downloads", "in the way");
}

void clearTheWay(Obstacle obstacle, const TestDir& dir)
{
    if (obstacle == DirectoryAtTheTarget)
        QDir().rmdir(dir / "downloads/sub/a.dat");
    else if (obstacle == FileForItsDirectory)
        QFile::remove(dir / "downloads/sub");
    else
        QFile::remove(dir / "downloads");
}

QVector<ProgramFile> filesOfSizes(const QVector<quint64>& sizes)
{
    QVector<ProgramFile> entries;
    for (const quint64 size : sizes)
        entries.append({"a.dat", QString(), size});
    return entries;
}

} // namespace

class TestDownloads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // As in the program: a box that closes ends nothing.
        QApplication::setQuitOnLastWindowClosed(false);
    }

    // ---- Where files are fetched from

    void filesLieBesideTheVersionFile_data()
    {
        QTest::addColumn<QString>("updateUrl");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("expected");

        row("version file at the top", "http://127.0.0.1:1/index.txt", "a.dat",
            "http://127.0.0.1:1/a.dat");
        row("version file in directories", "http://127.0.0.1:1/x/y/index.txt", "a.dat",
            "http://127.0.0.1:1/x/y/a.dat");
        row("query of the version file is dropped", "http://127.0.0.1:1/x/index.txt?c=beta",
            "a.dat", "http://127.0.0.1:1/x/a.dat");
        row("slash in the query counts", "http://127.0.0.1:1/get?file=x/index.txt", "a.dat",
            "http://127.0.0.1:1/get?file=x/a.dat");
        row("slash at the end", "http://127.0.0.1:1/x/", "a.dat", "http://127.0.0.1:1/x/a.dat");
        row("two slashes at the end", "http://127.0.0.1:1/x//", "a.dat",
            "http://127.0.0.1:1/x//a.dat");
        row("host alone is taken for the version file", "http://example.invalid", "localhost",
            "http://localhost");
        row("backslash separates nothing", "http://127.0.0.1:1/x\\index.txt", "a.dat",
            "http://127.0.0.1:1/a.dat");
        row("no slash leaves the bare name", "index.txt", "a.dat", "a.dat");
        row("no slash, name with directory", "index.txt", "sub/a.dat", "sub/a.dat");
        row("empty update URL leaves the bare name", "", "a.dat", "a.dat");
        const QString base = "http://127.0.0.1:1/r/index.txt";
        const auto addName = [&base](const char* property, const QString& name) {
            row(property, base, name, "http://127.0.0.1:1/r/" + name);
        };
        addName("name with directories", "sub/dir/a.dat");
        addName("name with blanks", "a b  c.dat");
        addName("name with a lone percent sign", "100%.dat");
        addName("name that looks escaped", "a%20b%2Fc.dat");
        addName("name with a number sign", "a#b.dat");
        addName("name with a question mark", "a?b=c.dat");
        addName("name with a plus and an ampersand", "a+b&c.dat");
        addName("name with a backslash", "sub\\a.dat");
        addName("name outside ASCII", QString::fromUtf8("Gr\xC3\xB6\xC3\x9F"
                                                        "e.dat"));
        addName("name with a leading slash", "/a.dat");
        addName("name that is a URL", "http://localhost/a.dat");
        addName("name with a colon", "a:b.dat");
        addName("name that climbs", "../a.dat");
        addName("name with a slash at the end", "sub/");
        addName("empty name", "");
    }

    void filesLieBesideTheVersionFile()
    {
        QFETCH(QString, updateUrl);
        QFETCH(QString, name);
        QFETCH(QString, expected);
        Download download;
        download.state.updateUrl = updateUrl;
        download.list(entryFor(name, "x"));
        download.updater.downloadNewProgramData();

        const auto* reply = download.state.netManager.findChild<QNetworkReply*>();
        QVERIFY(reply);
        QCOMPARE(reply->request().url(), QUrl(expected));
        QCOMPARE(reply->operation(), QNetworkAccessManager::GetOperation);
    }

    void fileAtTheIndexIsFetched()
    {
        Download download;
        download.offer("0.dat", "zero");
        download.offer("1.dat", "one");
        download.offer("2.dat", "two");
        download.state.currentFile = 1;
        QCOMPARE(download.run(), 0);
        QCOMPARE(requestsOf(download), QString("1.dat 2.dat"));
        QCOMPARE(download.saved(), QStringList({"1.dat", "2.dat"}));
    }

    void namesGoToTheServerAsTheUrlHasThem_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("path");
        row("plain", "a.dat", "/r/a.dat");
        row("directories", "sub/dir/a.dat", "/r/sub/dir/a.dat");
        row("blank", "a b.dat", "/r/a%20b.dat");
        row("lone percent sign", "100%.dat", "/r/100%25.dat");
        row("looks escaped", "a%20b.dat", "/r/a%20b.dat");
        row("number sign cuts the name", "a#b.dat", "/r/a");
        row("question mark begins a query", "a?b.dat", "/r/a?b.dat");
        row("outside ASCII",
            QString::fromUtf8("Gr\xC3\xB6\xC3\x9F"
                              "e.dat"),
            "/r/Gr%C3%B6%C3%9Fe.dat");
    }

    void namesGoToTheServerAsTheUrlHasThem()
    {
        QFETCH(QString, name);
        QFETCH(QString, path);
        Download download;
        download.list(entryFor(name, "contents"));
        download.server.serve(path, HttpReply::ok("contents"));
        QVERIFY(download.saveAll());
        QCOMPARE(download.server.requests().first(), path);
        // On disk the file has the name that the manifest gives it.
        QCOMPARE(files::read(download.dir / "downloads/" + name), QByteArray("contents"));
    }

    void bareNamesCannotBeFetched()
    {
        IN_OWN_PROCESS();
        Download download;
        download.offer("a.dat", "contents");
        download.state.updateUrl = "index.txt";
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(),
                 QStringList(warningWithCode(QNetworkReply::ProtocolUnknownError)));
        QCOMPARE(download.server.requests(), QStringList());
    }

    // ---- One transfer at a time

    void nextFileWaitsForTheOneBefore()
    {
        Download download;
        const QStringList names = {"b", "a", "d", "c"};
        for (const QString& name : names)
            download.offer(name, "contents of " + name.toUtf8());
        download.answer("b", {HttpReply::hold(HttpReply::ok("contents of b"))});

        download.updater.downloadNewProgramData();
        QCOMPARE(download.transfersRunning(), 1);
        QVERIFY(download.waitForRequest("b"));
        QCOMPARE(download.transfersRunning(), 1);
        QCOMPARE(download.state.currentFile, 0);
        QVERIFY(download.saved().isEmpty());

        download.server.release();
        QVERIFY(QTest::qWaitFor([&] { return download.state.currentFile == 4; }));
        QCOMPARE(requestsOf(download), QString("b a d c"));
        QCOMPARE(download.server.mostInFlight(), 1);
    }

    void noTransferRunsWhileAReplyIsHandled()
    {
        IN_OWN_PROCESS();
        Download download;
        follow(download, "ok | T ok | H ok | ok");
        QList<int> running;
        download.beforeEachReply([&] { running.append(download.transfersRunning()); });
        QCOMPARE(download.run(), 0);
        QCOMPARE(running, QList<int>({0, 0, 0, 0, 0, 0}));
        QCOMPARE(download.server.mostInFlight(), 1);
    }

    // ---- Where and how files are saved

    void filesAreSavedUnderTheDownloadDirectory_data()
    {
        QTest::addColumn<QString>("ending");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("expected");

        row("plain name", "", "a.dat", QStringList({"downloads/a.dat"}));
        row("separator at the end of the directory", "/", "a.dat",
            QStringList({"downloads/a.dat"}));
        row("backslash at the end of the directory stays", "\\", "a.dat",
            QStringList({"downloads/", "downloads\\a.dat"}));
        row("sub-directories are made", "", "sub/dir/a.dat",
            QStringList({"downloads/sub/", "downloads/sub/dir/", "downloads/sub/dir/a.dat"}));
        row("backslash in the name makes a directory beside the file", "", "sub\\a.dat",
            QStringList({"downloads/sub/", "downloads/sub\\a.dat"}));
        row("slash behind a backslash is the later one", "", "one\\two/a.dat",
            QStringList({"downloads/one\\two/", "downloads/one\\two/a.dat"}));
        row("backslash behind a slash is the later one", "", "one/two\\a.dat",
            QStringList({"downloads/one/", "downloads/one/two/", "downloads/one/two\\a.dat"}));
        row("leading slash stays inside", "", "/a.dat", QStringList({"downloads/a.dat"}));
        row("blanks and percent signs stay", "", "a %41%1.dat",
            QStringList({"downloads/a %41%1.dat"}));
    }

    void filesAreSavedUnderTheDownloadDirectory()
    {
        QFETCH(QString, ending);
        QFETCH(QString, name);
        QFETCH(QStringList, expected);
        Download download;
        download.state.tempDir = download.dir / "downloads" + ending;
        download.offer(name, "contents");
        QVERIFY(download.saveAll());

        QStringList found = files::list(download.dir.path());
        found.removeOne("nowhere");
        found.removeOne("downloads/");
        if (ending == "\\")
            found.prepend("downloads/");
        QCOMPARE(found, expected);
        QCOMPARE(files::read(download.dir / expected.last()), QByteArray("contents"));
    }

    void downloadDirectoryIsMadeWhenMissing()
    {
        Download download;
        download.state.tempDir = download.dir / "not/yet/there";
        download.offer("a.dat", "contents");
        QVERIFY(download.saveAll());
        QCOMPARE(files::read(download.dir / "not/yet/there/a.dat"), QByteArray("contents"));
    }

    void earlierCopyIsOverwritten()
    {
        Download download;
        files::write(download.dir / "downloads/a.dat", "a longer text from an earlier run");
        download.offer("a.dat", "short");
        QVERIFY(download.saveAll());
        QCOMPARE(files::read(download.dir / "downloads/a.dat"), QByteArray("short"));
    }

    void contentsArriveUnchanged_data()
    {
        QTest::addColumn<QByteArray>("contents");
        row("nothing", QByteArray());
        row("one byte", QByteArray("x"));
        row("line ends and zero bytes", QByteArray("a\r\nb\n\0c\r\x1a", 9));
        row("5 MiB", noise(5 * static_cast<int>(mebibyte)));
    }

    void contentsArriveUnchanged()
    {
        QFETCH(QByteArray, contents);
        Download download;
        download.offer("a.dat", contents);
        QVERIFY(download.saveAll());
        QCOMPARE(download.saved(), QStringList("a.dat"));
        QVERIFY(files::read(download.dir / "downloads/a.dat") == contents);
    }

    void savedFilesAreCounted()
    {
        Download download;
        for (const char* name : {"a", "b", "c"})
            download.offer(name, name);
        QVERIFY(download.saveAll());
        QCOMPARE(download.state.currentFile, 3);
        QCOMPARE(download.state.downloadedFiles, 3);
    }

    void outcomeOfTheWriteDoesNotMatter()
    {
        if (!QFile::exists("/dev/full"))
            QSKIP("there is no device that is always full");
        Download download;
        files::link("/dev/full", download.dir / "downloads/a.dat");
        download.offer("a.dat", "contents");
        QVERIFY(download.saveAll());
        QCOMPARE(download.state.currentFile, 1);
        QCOMPARE(download.server.requestsFor("/r/a.dat"), 1);
    }

    // ---- Verification

    void onlyIntactFilesAreSaved_data()
    {
        QTest::addColumn<ProgramFile>("file");
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<bool>("intact");

        const QByteArray contents = "the contents";
        const quint64 size = static_cast<quint64>(contents.size());
        const QString sha1 = files::sha1(contents);
        const HttpReply ok = HttpReply::ok(contents);
        const auto entry = [](const QString& digest, quint64 bytes) {
            return ProgramFile{"a.dat", digest, bytes};
        };
        row("size and digest are right", entry(sha1, size), ok, true);
        row("digest in upper case", entry(sha1.toUpper(), size), ok, true);
        row("digest in both cases", entry(sha1.left(20).toUpper() + sha1.mid(20), size), ok, true);
        row("body too short for the size", entry(sha1, size + 1), ok, false);
        row("body too long for the size", entry(sha1, size - 1), ok, false);
        row("size of zero", entry(sha1, 0), ok, false);
        row("size larger by 2^32", entry(sha1, (1ULL << 32) + size), ok, false);
        row("size of 2^32 and no body", entry(files::sha1(""), 1ULL << 32), HttpReply::ok(""),
            false);
        row("largest size and no body", entry(files::sha1(""), ~0ULL), HttpReply::ok(""), false);
        row("digest of something else", entry(files::sha1("something else"), size), ok, false);
        row("digest with its last digit missing", entry(sha1.left(39), size), ok, false);
        row("digest with a blank behind", entry(sha1 + ' ', size), ok, false);
        row("no digest", entry(QString(), size), ok, false);
        row("empty file with another digest", entry(sha1, 0), HttpReply::ok(""), false);
        row("page of a redirect with the right contents", entry(sha1, size),
            HttpReply::redirect("/r/elsewhere", contents), true);
        row("page of a redirect with other contents", entry(sha1, size),
            HttpReply::redirect("/r/elsewhere", "moved"), false);
        row("other status of success", entry(sha1, size), HttpReply::error(203, contents), true);
        row("compressed transfer of the right contents", entry(sha1, size), gzipped(contents),
            true);
        row("compressed transfer, listed as compressed", entryFor("a.dat", gzip(contents)),
            gzipped(contents), false);
        row("compressed file, not a compressed transfer", entryFor("a.dat", gzip(contents)),
            HttpReply::ok(gzip(contents)), true);
    }

    void onlyIntactFilesAreSaved()
    {
        IN_OWN_PROCESS();
        QFETCH(ProgramFile, file);
        QFETCH(HttpReply, reply);
        QFETCH(bool, intact);
        Download download;
        download.server.serve("/r/elsewhere", HttpReply::ok("the contents"));
        download.list(file);
        download.answer(file.name, {reply});
        QCOMPARE(download.run(), intact ? 0 : 1);
        QCOMPARE(download.boxes.summaries(),
                 intact ? QStringList() : QStringList(damageOf("a.dat")));
        QCOMPARE(download.saved(), intact ? QStringList("a.dat") : QStringList());
        QCOMPARE(requestsOf(download), QString(intact ? "a.dat" : "a.dat a.dat a.dat"));
        if (intact)
            QCOMPARE(files::sha1(files::read(download.dir / "downloads/a.dat")),
                     file.sha1.toLower());
    }

    void compressedTransferMayGrowAThousandfold()
    {
        const QByteArray zeros(12 * static_cast<int>(mebibyte), '\0');
        Download download;
        download.list(entryFor("a.dat", zeros));
        download.answer("a.dat", {gzipped(zeros)});
        QVERIFY(download.saveAll());
        QVERIFY(files::read(download.dir / "downloads/a.dat") == zeros);
    }

    void damagedFileLeavesTheDirectoryMadeForIt()
    {
        IN_OWN_PROCESS();
        Download download;
        download.list(entryFor("sub/dir/a.dat", "contents"));
        download.answer("sub/dir/a.dat", {HttpReply::ok("damaged")});
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.saved(), QStringList({"sub/", "sub/dir/"}));
    }

    void failedTransferMakesNoDirectory()
    {
        IN_OWN_PROCESS();
        Download download;
        download.list(entryFor("sub/dir/a.dat", "contents"));
        QCOMPARE(download.run(), 1);
        QVERIFY(!QFile::exists(download.dir / "downloads"));
    }

    void damagedFileLeavesAnEarlierCopyAlone()
    {
        IN_OWN_PROCESS();
        Download download;
        files::write(download.dir / "downloads/a.dat", "from an earlier run");
        download.list(entryFor("a.dat", "contents"));
        download.answer("a.dat", {HttpReply::ok("damaged")});
        QCOMPARE(download.run(), 1);
        QCOMPARE(files::read(download.dir / "downloads/a.dat"), QByteArray("from an earlier run"));
    }

    // ---- The retry rule

    void threeFailuresInARowEndTheUpdate_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("requests");
        QTest::addColumn<QString>("box");
        QTest::addColumn<QStringList>("saved");

        const QString none;
        const QString warning = warningWithCode(203);
        const auto all = [](int count) {
            QStringList names;
            for (int i = 1; i <= count; ++i)
                names.append(QString::number(i));
            return names;
        };

        row("no failure", "ok", "1", none, all(1));
        row("no failure of several files", "ok | ok | ok", "1 2 3", none, all(3));
        row("one transfer error", "T ok", "1 1", none, all(1));
        row("two transfer errors", "T T ok", "1 1 1", none, all(1));
        row("three transfer errors", "T T T", "1 1 1", warning, all(0));
        row("one wrong digest", "H ok", "1 1", none, all(1));
        row("two wrong digests", "H H ok", "1 1 1", none, all(1));
        row("three wrong digests", "H H H", "1 1 1", damageOf("1"), all(0));
        row("one body too short", "S ok", "1 1", none, all(1));
        row("two bodies too short", "S S ok", "1 1 1", none, all(1));
        row("three bodies too short", "S S S", "1 1 1", damageOf("1"), all(0));
        row("three bodies too long", "L L L", "1 1 1", damageOf("1"), all(0));
        row("every kind of damage", "S L H", "1 1 1", damageOf("1"), all(0));

        row("transfer error, then damage twice", "T H H", "1 1 1", damageOf("1"), all(0));
        row("transfer error, then wrong sizes", "T S L", "1 1 1", damageOf("1"), all(0));
        row("transfer errors, then damage", "T T H", "1 1 1", damageOf("1"), all(0));
        row("transfer error between damages", "H T S", "1 1 1", damageOf("1"), all(0));
        row("damage twice, then a transfer error", "H H T", "1 1 1", warning, all(0));
        row("damage, then transfer errors", "S T T", "1 1 1", warning, all(0));
        row("damage between transfer errors", "T H T", "1 1 1", warning, all(0));
        row("two failures of different kinds", "H T ok", "1 1 1", none, all(1));

        row("success starts the count anew", "H T ok | T T ok", "1 1 1 2 2 2", none, all(2));
        row("two failures of each file", "T T ok | H H ok | S T ok", "1 1 1 2 2 2 3 3 3", none,
            all(3));
        row("one failure, then two of the next file", "T ok | T T ok", "1 1 2 2 2", none, all(2));
        row("three failures of the next file after two of the first", "T T ok | T T T",
            "1 1 1 2 2 2", warning, all(1));
        row("third failure of the next file decides the box", "H H ok | T H S", "1 1 1 2 2 2",
            damageOf("2"), all(1));

        row("files behind the aborted one are never asked for", "T T T | ok", "1 1 1", warning,
            all(0));
        row("saved files stay when a transfer fails", "ok | ok | T T T | ok", "1 2 3 3 3", warning,
            all(2));
        row("saved files stay when a file is damaged", "ok | ok | H H H | ok", "1 2 3 3 3",
            damageOf("3"), all(2));
        row("last file aborts", "ok | S S S", "1 2 2 2", damageOf("2"), all(1));
    }

    void threeFailuresInARowEndTheUpdate()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        QFETCH(QString, requests);
        QFETCH(QString, box);
        QFETCH(QStringList, saved);
        Download download;
        follow(download, script);

        const bool completes = box.isEmpty();
        QCOMPARE(download.run(), completes ? 0 : 1);
        QCOMPARE(requestsOf(download), requests);
        QCOMPARE(download.boxes.summaries(), completes ? QStringList() : QStringList(box));
        QCOMPARE(download.saved(), saved);
        for (const QString& name : std::as_const(saved))
            QCOMPARE(files::read(download.dir / "downloads/" + name),
                     "contents of " + name.toUtf8());
        QCOMPARE(download.state.currentFile, static_cast<int>(saved.size()));
        QCOMPARE(download.state.downloadedFiles, static_cast<int>(saved.size()));
    }

    void failuresAreCountedForTheWholeProcess()
    {
        IN_OWN_PROCESS();
        {
            Download download;
            follow(download, "T T T");
            QCOMPARE(download.run(), 1);
        }
        {
            // The count is still at its limit.
            Download download;
            follow(download, "H ok");
            QCOMPARE(download.run(), 1);
            QCOMPARE(requestsOf(download), QString("1"));
            QCOMPARE(download.boxes.summaries(), QStringList(damageOf("1")));
        }
        {
            // A file that is saved starts it anew.
            Download download;
            follow(download, "ok | T T ok");
            QCOMPARE(download.run(), 0);
        }
    }

    void brokenTransfersCountOnce_data()
    {
        QTest::addColumn<HttpReply>("reply");
        const QByteArray contents(5000, 'x');
        row("connection closed in the body", HttpReply::cutShort(contents, 4999));
        row("connection closed before the body", HttpReply::cutShort(contents, 0));
    }

    void brokenTransfersCountOnce()
    {
        IN_OWN_PROCESS();
        QFETCH(HttpReply, reply);
        const QByteArray contents(5000, 'x');
        Download download;
        download.list(entryFor("1", contents));
        download.answer("1", {reply, reply, HttpReply::ok(contents)});
        QCOMPARE(download.run(), 0);
        QCOMPARE(requestsOf(download), QString("1 1 1"));
        QVERIFY(download.boxes.all().isEmpty());
        QCOMPARE(files::read(download.dir / "downloads/1"), contents);
    }

    // ---- The message boxes

    void warningGivesTheErrorCode_data()
    {
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<int>("code");
        row("401 credentials wanted", HttpReply::error(401), 204);
        row("404 not found", HttpReply::error(404), 203);
        row("405 not allowed", HttpReply::error(405), 202);
        row("418 no known status", HttpReply::error(418), 302);
        const QByteArray contents(5000, 'x');
        row("closed before the end", HttpReply::cutShort(contents, 4000), 2);
        row("reset in the body", HttpReply::resetInBody(contents, 4000), 2);
        row("reset without an answer", HttpReply::reset(), 2);
    }

    void warningGivesTheErrorCode()
    {
        IN_OWN_PROCESS();
        QFETCH(HttpReply, reply);
        QFETCH(int, code);
        Download download;
        download.list(entryFor("sub/a.dat", "contents"));
        download.answer("sub/a.dat", {reply});
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(), QStringList(warningWithCode(code)));
    }

    void warningGivesTheCodeOfTheLastError()
    {
        IN_OWN_PROCESS();
        Download download;
        download.list(entryFor("a.dat", "contents"));
        download.answer("a.dat", {HttpReply::error(404), HttpReply::error(404),
                                  HttpReply::error(405), HttpReply::error(404)});
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(), QStringList(warningWithCode(202)));
    }

    void noticeOfDamageNamesTheFile_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("shown");
        row("plain name", "plain", "plain");
        row("directories are left out", "sub/dir/a.dat", "a.dat");
        row("backslashes separate, too", "a\\b", "b");
        row("slash is the last separator", "a\\b/c.dat", "c.dat");
        row("backslash is the last separator", "a/b\\c.dat", "c.dat");
        row("leading slash is left out", "/a.dat", "a.dat");
        row("slash at the end shows the whole", "dir/", "dir/");
        row("slash at the end shows the directories, too", "sub/dir/", "sub/dir/");
        row("backslash at the end shows the whole", "sub/dir\\", "sub/dir\\");
        row("one character behind the separator", "sub/a", "a");
        row("place marker stays", "sub/a%1%2.dat", "a%1%2.dat");
        row("quotes and blanks stay", "sub/a \"b\".dat", "a \"b\".dat");
        row("markup stays", "<b>a.dat", "<b>a.dat");
    }

    void noticeOfDamageNamesTheFile()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, name);
        QFETCH(QString, shown);
        Download download;
        download.list(entryFor(name, "contents"));
        download.answer(name, {HttpReply::ok("damaged")});
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(), QStringList(damageOf(shown)));
    }

    void boxesAreModalNoticesWithOneButton_data()
    {
        QTest::addColumn<QString>("script");
        row("transfer error", "T");
        row("damage", "H");
    }

    void boxesAreModalNoticesWithOneButton()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        Download download;
        follow(download, script);
        download.openDialog();
        int transfers = -1;
        download.boxes.whenShown([&] { transfers = download.transfersRunning(); });
        QCOMPARE(download.run(), 1);

        QCOMPARE(download.boxes.all().size(), 1);
        const ShownBox box = download.boxes.all().first();
        QCOMPARE(box.standardButtons, QMessageBox::StandardButtons(QMessageBox::Ok));
        QCOMPARE(box.buttons, 1);
        QVERIFY(box.modal);
        QVERIFY(!box.hasParent);
        QCOMPARE(transfers, 0);
        // In all the rest it is what the toolkit makes of such a call.
        const auto toolkitBox = script == "T" ? &showWarning : &showCritical;
        toolkitBox(box.title, box.text);
        QCOMPARE(download.boxes.all().size(), 2);
        QVERIFY(download.boxes.all().last() == box);
    }

    void dialogIsHiddenBehindABox_data()
    {
        QTest::addColumn<QString>("script");
        row("transfer error", "ok | T T T");
        row("damage", "ok | H H H");
    }

    void dialogIsHiddenBehindABox()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        Download download;
        follow(download, script);
        const QProgressDialog* dialog = download.openDialog();
        QStringList looks;
        download.beforeEachReply([&] { looks.append(looksOf(*dialog)); });
        download.boxes.whenShown([&] { looks.append(looksOf(*dialog)); });
        QCOMPARE(download.run(), 1);
        const QString label = "1 | Downloading file 2 of 2 (0.00 MB left)";
        QCOMPARE(looks, QStringList({"-1 | An update | shown", label + " | shown",
                                     label + " | shown", label + " | shown", label + " | hidden"}));
        QVERIFY(!dialog->isVisible());
    }

    void boxesAreTranslated_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("expected");
        row("transfer error", "T",
            "warning|[Error]|[An error occured while downloading the update.\nError code: 203]");
        row("damage", "H",
            "critical|[Error]|[An error occured while downloading the file "
            "\"1\"\n\nAborting the update.]");
    }

    void boxesAreTranslated()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        QFETCH(QString, expected);
        const BracketTranslator translator;
        Download download;
        follow(download, script);
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(), QStringList(expected));
        QVERIFY(translator.asked().contains("Error"));
        QCOMPARE(translator.asked().filter("An error occured").size(), 1);
        QVERIFY(translator.asked().filter("An error occured").first().contains("%1"));
    }

    // ---- Files that cannot be opened

    void fileThatCannotBeOpenedIsFetchedUntilItCan_data()
    {
        QTest::addColumn<int>("obstacle");
        row("directory in its place", static_cast<int>(DirectoryAtTheTarget));
        row("file in place of its directory", static_cast<int>(FileForItsDirectory));
        row("file in place of the download directory", static_cast<int>(FileForTheDownloads));
    }

    void fileThatCannotBeOpenedIsFetchedUntilItCan()
    {
        QFETCH(int, obstacle);
        Download download;
        download.offer("sub/a.dat", QByteArray(static_cast<int>(mebibyte), 'x'));
        download.offer("b.dat", QByteArray(static_cast<int>(mebibyte), 'y'));
        QProgressDialog* dialog = download.openDialog();
        putInTheWay(static_cast<Obstacle>(obstacle), download.dir);

        QStringList looks;
        int savedSoFar = -1;
        int repliesAlive = -1;
        download.beforeEachReply([&] {
            const int requests = download.server.requestsFor("/r/sub/a.dat");
            if (download.state.currentFile == 0)
                looks.append(looksOf(*dialog));
            if (requests == 5) {
                // Each attempt refreshes the dialog.
                dialog->setLabelText("stale");
                dialog->setValue(1);
            } else if (requests == 15 && download.state.currentFile == 0) {
                savedSoFar = download.state.downloadedFiles;
                repliesAlive = static_cast<int>(
                    download.state.netManager.findChildren<QNetworkReply*>().size());
                clearTheWay(static_cast<Obstacle>(obstacle), download.dir);
            }
        });
        QCOMPARE(download.run(), 0);

        QCOMPARE(download.server.requestsFor("/r/sub/a.dat"), 15);
        QCOMPARE(download.server.requestsFor("/r/b.dat"), 1);
        QVERIFY(download.boxes.all().isEmpty());
        QCOMPARE(savedSoFar, 0);
        QVERIFY2(repliesAlive <= 2, "replies that were handled are released");
        QCOMPARE(looks.size(), 15);
        QCOMPARE(looks.takeFirst(), QString("-1 | An update | shown"));
        QCOMPARE(looks.removeAll("0 | Downloading file 1 of 2 (2.00 MB left) | shown"), 14);
        QCOMPARE(download.saved(), QStringList({"b.dat", "sub/", "sub/a.dat"}));
    }

    void nameOfADirectoryIsFetchedWithoutEnd_data()
    {
        QTest::addColumn<QString>("name");
        row("slash at the end", "dir/");
        row("no name", "");
    }

    void nameOfADirectoryIsFetchedWithoutEnd()
    {
        QFETCH(QString, name);
        Download download;
        download.offer(name, "contents");
        download.beforeEachReply([&] {
            if (download.server.requestsFor(download.pathOf(name)) == 15)
                QCoreApplication::exit(5);
        });
        QCOMPARE(download.run(), 5);
        QVERIFY(download.boxes.all().isEmpty());
        QCOMPARE(download.state.currentFile, 0);
        QCOMPARE(download.state.downloadedFiles, 0);
    }

    void fileThatCannotBeOpenedLeavesTheCountOfFailures_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("requests");
        QTest::addColumn<QString>("box");
        row("two transfer errors before, one behind", "T T ok ok T", 5, warningWithCode(203));
        row("two damages before, one behind", "H H ok H", 4, damageOf("1"));
        row("in between each time", "ok T ok H ok S", 6, damageOf("1"));
        row("many in a row", "ok ok ok ok ok ok T T T", 9, warningWithCode(203));
    }

    void fileThatCannotBeOpenedLeavesTheCountOfFailures()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        QFETCH(int, requests);
        QFETCH(QString, box);
        Download download;
        follow(download, script);
        files::makeDirectory(download.dir / "downloads/1");
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.server.requests().size(), requests);
        QCOMPARE(download.boxes.summaries(), QStringList(box));
    }

    // ---- The progress dialog

    void dialogCountsTheSavedFiles()
    {
        Download download;
        files::write(download.dir / "tmp/other", "keeps the directory");
        const ScopedTmpDir tmp(download.dir / "tmp");
        download.state.programBaseDir = download.dir / "app";
        const QByteArray contents(static_cast<int>(mebibyte), 'x');
        for (const char* name : {"a", "sub/b", "c"})
            download.offer(name, contents);
        download.publish();
        QStringList looks;
        download.beforeEachReply([&] {
            if (download.state.progressDialog)
                looks.append(looksOf(*download.state.progressDialog));
        });
        QCOMPARE(download.run(), 0);

        QCOMPARE(looks, QStringList({"-1 | Downloading file 1 of 3 (3.00 MB left) | shown",
                                     "1 | Downloading file 2 of 3 (2.00 MB left) | shown",
                                     "2 | Downloading file 3 of 3 (1.00 MB left) | shown"}));
        // At its maximum the dialog resets itself.
        QCOMPARE(looksOf(*download.state.progressDialog),
                 QString("-1 | Downloading file 4 of 3 (0.00 MB left) | hidden"));
        QCOMPARE(files::list(download.dir / "app"), QStringList({"a", "c", "sub/", "sub/b"}));
    }

    void dialogKeepsItsStateDuringRetries()
    {
        IN_OWN_PROCESS();
        Download download;
        follow(download, "ok | T H ok | ok");
        const QProgressDialog* dialog = download.openDialog();
        QStringList looks;
        download.beforeEachReply([&] { looks.append(looksOf(*dialog)); });
        QCOMPARE(download.run(), 0);
        const QString second = "1 | Downloading file 2 of 3 (0.00 MB left) | shown";
        QCOMPARE(looks, QStringList({"-1 | An update | shown", second, second, second,
                                     "2 | Downloading file 3 of 3 (0.00 MB left) | shown"}));
    }

    void dialogOfASingleFileEndsHidden()
    {
        Download download;
        follow(download, "ok");
        const QProgressDialog* dialog = download.openDialog();
        QCOMPARE(download.run(), 0);
        QCOMPARE(looksOf(*dialog), QString("-1 | Downloading file 2 of 1 (0.00 MB left) | hidden"));
    }

    void downloadsNeedNoDialog()
    {
        Download download;
        follow(download, "ok | ok");
        QCOMPARE(download.run(), 0);
        QCOMPARE(download.saved(), QStringList({"1", "2"}));
        QVERIFY(!download.state.progressDialog);
        QVERIFY(QApplication::topLevelWidgets().isEmpty());
    }

    void labelTellsFileAndMegabytesLeft_data()
    {
        QTest::addColumn<QVector<quint64>>("sizes");
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("label");
        using Sizes = QVector<quint64>;

        const Sizes three = {mebibyte, mebibyte, mebibyte};
        row("first of three", three, 0, "Downloading file 1 of 3 (3.00 MB left)");
        row("second of three", three, 1, "Downloading file 2 of 3 (2.00 MB left)");
        row("last of three", three, 2, "Downloading file 3 of 3 (1.00 MB left)");
        row("index at the end", three, 3, "Downloading file 4 of 3 (0.00 MB left)");
        row("index behind the end", three, 7, "Downloading file 8 of 3 (0.00 MB left)");
        row("no files", Sizes(), 0, "Downloading file 1 of 0 (0.00 MB left)");
        row("different sizes", Sizes{9 * mebibyte, 4 * mebibyte, mebibyte / 2}, 1,
            "Downloading file 2 of 3 (4.50 MB left)");

        const auto addLeft = [](const char* name, const Sizes& sizes, const QString& left) {
            row(name, sizes, 0,
                QString("Downloading file 1 of %1 (%2 MB left)")
                    .arg(QString::number(sizes.size()), left));
        };
        addLeft("empty file", {0}, "0.00");
        addLeft("one byte", {1}, "0.00");
        addLeft("just below half a hundredth", {5242}, "0.00");
        addLeft("just above half a hundredth", {5243}, "0.01");
        addLeft("rounds up to the next one", {mebibyte - 1}, "1.00");
        addLeft("hundredths", {12939427}, "12.34");
        addLeft("small files add up", {2622, 2621}, "0.01");
        addLeft("four digits", {1234 * mebibyte}, "1234.00");
        addLeft("just below 2 GiB", {2 * gibibyte - 1}, "2048.00");
        addLeft("2 GiB wrap", {2 * gibibyte}, "-2048.00");
        addLeft("3 GiB wrap", {3 * gibibyte}, "-1024.00");
        addLeft("1 MiB below 4 GiB", {4 * gibibyte - mebibyte}, "-1.00");
        addLeft("4 GiB vanish", {4 * gibibyte}, "0.00");
        addLeft("high half of a size does not count", {(7ULL << 32) + mebibyte}, "1.00");
        addLeft("largest size", {~0ULL - mebibyte + 1}, "-1.00");
        addLeft("sum of two wraps", {gibibyte, gibibyte}, "-2048.00");
        addLeft("sum just below wraps with one more byte", {2 * gibibyte - 1, 1}, "-2048.00");
        addLeft("sum wraps twice", {3 * gibibyte, 3 * gibibyte, 3 * gibibyte}, "1024.00");
        addLeft("sum of 4 GiB vanishes", {3 * gibibyte, gibibyte}, "0.00");
        addLeft("high halves of sizes do not add up",
                {(1ULL << 32) + mebibyte, (1ULL << 33) + mebibyte}, "2.00");
        row("large file before the index does not count", Sizes{2 * gibibyte, mebibyte}, 1,
            "Downloading file 2 of 2 (1.00 MB left)");
        row("thousands of files", Sizes(12345, 0), 1233,
            "Downloading file 1234 of 12345 (0.00 MB left)");
    }

    void labelTellsFileAndMegabytesLeft()
    {
        QFETCH(QVector<quint64>, sizes);
        QFETCH(int, index);
        QFETCH(QString, label);
        Download download;
        download.state.programData.files = filesOfSizes(sizes);
        download.state.currentFile = index;
        const QProgressDialog* dialog = download.openDialog();
        download.updater.updateProgressLabel();
        QCOMPARE(dialog->labelText(), label);
        QCOMPARE(dialog->value(), -1);
        QCOMPARE(download.state.currentFile, index);
    }

    void labelCountsDownFromFileToFile_data()
    {
        QTest::addColumn<QVector<quint64>>("sizes");
        QTest::addColumn<QVector<int>>("indices");
        QTest::addColumn<QStringList>("left");
        using Sizes = QVector<quint64>;
        using Indices = QVector<int>;
        const Sizes four = {8 * mebibyte, 4 * mebibyte, 2 * mebibyte, mebibyte};

        row("one after the other", four, Indices{0, 1, 2, 3, 4},
            QStringList{"15.00", "7.00", "3.00", "1.00", "0.00"});
        row("behind the end", four, Indices{3, 4, 5, 6},
            QStringList{"1.00", "0.00", "0.00", "0.00"});
        row("one file twice", four, Indices{0, 1, 1, 2},
            QStringList{"15.00", "7.00", "7.00", "3.00"});
        row("one file left out", four, Indices{0, 2, 3}, QStringList{"15.00", "3.00", "1.00"});
        row("back again", four, Indices{1, 2, 0, 1}, QStringList{"7.00", "3.00", "15.00", "7.00"});
        row("through 2 GiB, and 4 GiB in one file",
            Sizes{3 * gibibyte, 4 * gibibyte, gibibyte, 2 * gibibyte, mebibyte},
            Indices{0, 1, 2, 3, 4, 5},
            QStringList{"-2047.00", "-1023.00", "-1023.00", "-2047.00", "1.00", "0.00"});
    }

    void labelCountsDownFromFileToFile()
    {
        QFETCH(QVector<quint64>, sizes);
        QFETCH(QVector<int>, indices);
        QFETCH(QStringList, left);
        Download download;
        download.state.programData.files = filesOfSizes(sizes);
        const QProgressDialog* dialog = download.openDialog();
        QStringList labels;
        QStringList expected;
        for (const int index : indices) {
            download.state.currentFile = index;
            download.updater.updateProgressLabel();
            labels.append(dialog->labelText());
            expected.append(QString("Downloading file %1 of %2 (%3 MB left)")
                                .arg(QString::number(index + 1), QString::number(sizes.size()),
                                     left.value(expected.size())));
        }
        QCOMPARE(labels, expected);
    }

    void labelIsThatOfTheListThatIsThere()
    {
        // Each step changes the list or the index after the label of the step before.
        Download download;
        QVector<ProgramFile>& list = download.state.programData.files;
        const QProgressDialog* dialog = download.openDialog();
        const auto labelAt = [&](int index) {
            download.state.currentFile = index;
            download.updater.updateProgressLabel();
            return dialog->labelText();
        };
        using Sizes = QVector<quint64>;

        list = filesOfSizes(Sizes(3, mebibyte));
        QCOMPARE(labelAt(0), QString("Downloading file 1 of 3 (3.00 MB left)"));
        list = filesOfSizes(Sizes(3, 4 * mebibyte)); // Another list of the same length.
        QCOMPARE(labelAt(1), QString("Downloading file 2 of 3 (8.00 MB left)"));
        list[2].size = mebibyte; // Another size in the same list.
        QCOMPARE(labelAt(2), QString("Downloading file 3 of 3 (1.00 MB left)"));
        list.append(list.first());
        QCOMPARE(labelAt(3), QString("Downloading file 4 of 4 (4.00 MB left)"));
        list.removeLast();
        QCOMPARE(labelAt(0), QString("Downloading file 1 of 3 (9.00 MB left)"));
        std::swap(list[0], list[2]);
        QCOMPARE(labelAt(1), QString("Downloading file 2 of 3 (8.00 MB left)"));
        list.clear();
        QCOMPARE(labelAt(2), QString("Downloading file 3 of 0 (0.00 MB left)"));
        list = filesOfSizes(Sizes(1, mebibyte));
        QCOMPARE(labelAt(0), QString("Downloading file 1 of 1 (1.00 MB left)"));
    }

    void labelIsTheSameInEveryLanguage()
    {
        const QLocale before;
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        const BracketTranslator translator;
        Download download;
        download.state.programData.files =
            filesOfSizes(QVector<quint64>(1500, mebibyte + mebibyte / 4));
        download.state.currentFile = 99;
        const QProgressDialog* dialog = download.openDialog();
        download.updater.updateProgressLabel();
        QLocale::setDefault(before);
        QCOMPARE(dialog->labelText(), QString("Downloading file 100 of 1500 (1751.25 MB left)"));
        QVERIFY(translator.asked().filter("Downloading").isEmpty());
    }

    void labelWithoutDialogIsNothing()
    {
        Download download;
        follow(download, "ok");
        download.updater.updateProgressLabel();
        QVERIFY(!download.state.progressDialog);
        QVERIFY(QApplication::topLevelWidgets().isEmpty());
    }

    // ---- The ends of a run

    void cancelLeavesTheSavedFiles()
    {
        TestDir tmp;
        const ScopedTmpDir scoped(tmp.path());
        {
            Download download;
            download.state.programBaseDir = download.dir / "app";
            download.offer("a", "contents of a");
            download.offer("b", "contents of b");
            download.answer("b", {HttpReply::hold(HttpReply::ok("contents of b"))});
            download.publish();
            download.updater.start(false);
            QVERIFY(download.waitForRequest("b"));

            auto* cancel = download.state.progressDialog->findChild<QPushButton*>();
            QCOMPARE(cancel->text(), QString("Cancel"));
            QTimer::singleShot(0, cancel, &QPushButton::click);
            QTimer::singleShot(60000, &download.updater, [] { QCoreApplication::exit(endless); });
            QCOMPARE(QCoreApplication::exec(), 0);
            QVERIFY(!QFile::exists(download.dir / "app"));
            QVERIFY(download.boxes.all().isEmpty());
        }
        const QString saved = tmp / "wUpEditor2.0";
        QCOMPARE(files::list(saved), QStringList("a"));
        QCOMPARE(files::read(saved + "/a"), QByteArray("contents of a"));
    }

    void abortOfAWholeRunInstallsNothing()
    {
        IN_OWN_PROCESS();
        TestDir tmp;
        const ScopedTmpDir scoped(tmp.path());
        Download download;
        download.state.programBaseDir = download.dir / "app";
        download.offer("a", "contents of a");
        download.list(entryFor("sub/b", "contents of b"));
        download.answer("sub/b", {HttpReply::ok("damaged")});
        download.publish();
        bool visible = true;
        download.boxes.whenShown([&] { visible = download.state.progressDialog->isVisible(); });
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(), QStringList(damageOf("b")));
        QVERIFY(!visible);
        QVERIFY(!QFile::exists(download.dir / "app"));
        QCOMPARE(files::list(tmp / "wUpEditor2.0"), QStringList({"a", "sub/"}));
    }

    void repliesAreReleased_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("left");
        row("all saved", "ok | ok | ok", 0);
        row("saved after failures", "T T ok | H S ok", 0);
        row("aborted by damage", "T H H", 0);
        // The reply whose error ends the update is left to the manager: intended.
        row("aborted by a transfer error", "ok | H T T", 1);
    }

    void repliesAreReleased()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        QFETCH(int, left);
        Download download;
        follow(download, script);
        QVERIFY(download.run() != endless);
        QCOMPARE(download.repliesLeft(), left);
    }

    void nothingLeftToDownloadIsInstalledAtOnce_data()
    {
        QTest::addColumn<QStringList>("names");
        row("no files at all", QStringList());
        row("all saved before", QStringList({"a", "b"}));
    }

    void nothingLeftToDownloadIsInstalledAtOnce()
    {
        QFETCH(QStringList, names);
        Download download;
        download.state.programBaseDir = download.dir / "app";
        for (const QString& name : std::as_const(names)) {
            files::write(download.dir / "downloads/" + name, "saved before");
            download.offer(name, "new");
        }
        download.state.currentFile = static_cast<int>(names.size());
        QCOMPARE(download.run(), 0);
        QCOMPARE(files::list(download.dir / "app"), names);
        QVERIFY(download.server.requests().isEmpty());
        QVERIFY(download.state.netManager.findChildren<QNetworkReply*>().isEmpty());
    }

private:
    static void showWarning(const QString& title, const QString& text)
    {
        QMessageBox::warning(nullptr, title, text, QMessageBox::Ok, QMessageBox::NoButton);
    }

    static void showCritical(const QString& title, const QString& text)
    {
        QMessageBox::critical(nullptr, title, text, QMessageBox::Ok, QMessageBox::NoButton);
    }
};

UPDATER_TEST_MAIN(TestDownloads)
#include "tst_Downloads.moc"
