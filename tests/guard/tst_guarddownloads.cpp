// The files of an update: fetched several at once, continued, checked, tried again, used again.

#include "host/guard/Downloads.h"

#include "tests/guard/PeakMemory.h"
#include "tests/guard/StreamingServer.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Needs.h"
#include "tests/support/Nginx.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Row.h"
#include "tests/support/Sample.h"
#include "tests/support/TcpRelay.h"
#include "tests/support/TestMain.h"

#include <QDir>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <csignal>
#include <limits>
#include <sys/resource.h>

Q_DECLARE_METATYPE(HttpReply)
Q_DECLARE_METATYPE(TcpRelay::Ending)

namespace {

using State = Downloads::State;

/// Where full-disk tests have their directory: a variable for a process of its own.
const char* const diskVariable = "UPDATER_TEST_DISK";

/// Longer than anything here takes, so that nothing counts as stalled.
constexpr int patient = 60;

/// Bytes that neither repeat nor compress.
QByteArray noise(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 number = static_cast<quint32>(size);
    for (char& byte : bytes) {
        number = number * 1664525U + 1013904223U;
        byte = static_cast<char>(number >> 24);
    }
    return bytes;
}

/// Downloads that are watched.
class Run
{
public:
    Run(const Downloads::Settings& settings, const QVector<ProgramFile>& files)
        : downloads(settings, files), m_files(files)
    {
        QObject::connect(&downloads, &Downloads::settled, &downloads,
                         [this](const QString& key) { settled.append(key); });
    }

    /// @return False when the end does not come.
    bool toTheEnd()
    {
        // A loop of its own: QTest::qWaitFor() sleeps between looks.
        QEventLoop loop;
        QObject::connect(&downloads, &Downloads::settled, &loop, [this, &loop] {
            if (isOver())
                loop.quit();
        });
        QTimer::singleShot(100000, &loop, &QEventLoop::quit);
        downloads.start();
        if (!m_files.isEmpty())
            loop.exec();
        return isOver();
    }

    bool isOver() const
    {
        return std::none_of(m_files.begin(), m_files.end(), [this](const ProgramFile& file) {
            return downloads.stateOf(file) == State::Waiting;
        });
    }

    /// The names of the files in @p state, in their order.
    QStringList namesOf(State state) const
    {
        QStringList names;
        for (const ProgramFile& file : m_files) {
            if (downloads.stateOf(file) == state)
                names.append(file.name);
        }
        return names;
    }

    Downloads downloads;
    QStringList settled; ///< The keys, in the order of the signals.

private:
    const QVector<ProgramFile> m_files;
};

/// The files to fetch, and where they go.
class Wanted
{
public:
    /// Adds a file to the list.
    void add(const QString& name, const QByteArray& contents)
    {
        files.append(tree::entry(name, contents));
        m_contents.append(contents);
    }

    void add(const ProgramFile& file)
    {
        files.append(file);
        m_contents.append(QByteArray());
    }

    Downloads::Settings settings(const QString& versionFileUrl, int jobs = 6,
                                 int stallSeconds = patient) const
    {
        return {versionFileUrl, directory(), jobs, stallSeconds};
    }

    QString directory() const { return m_dir.path(); }

    /// Where the file @p index is in the end.
    QString path(int index = 0) const { return m_dir / Downloads::keyOf(files.at(index)); }

    /// Where it is before.
    QString partPath(int index = 0) const { return path(index) + ".part"; }

    QByteArray contents(int index = 0) const { return m_contents.at(index); }

    /// The keys of all files, each once, in their order.
    QStringList keys() const
    {
        QStringList all;
        for (const ProgramFile& file : files)
            all.append(Downloads::keyOf(file));
        all.removeDuplicates();
        return all;
    }

    /// What is not as it should be once @p run has got all files; empty when nothing is.
    QString missing(const Run& run) const
    {
        QStringList lines;
        if (!run.downloads.failure().isEmpty())
            lines += run.downloads.failure();
        QStringList names = keys();
        for (int i = 0; i < files.size(); ++i) {
            const QString path = run.downloads.pathOf(files.at(i));
            if (run.downloads.stateOf(files.at(i)) != State::Ready)
                lines += "not ready: " + files.at(i).name;
            else if (path != this->path(i))
                lines += "at another place: " + files.at(i).name;
            else if (::files::read(path) != contents(i))
                lines += "other contents: " + files.at(i).name;
            else if (::files::mode(path) != 0600)
                lines += "another mode: " + files.at(i).name;
        }
        QStringList settled = run.settled;
        settled.sort();
        names.sort();
        if (settled != names)
            lines += "settled: " + settled.join(' ');
        if (::files::list(directory()) != names)
            lines += "in the directory: " + ::files::list(directory()).join(' ');
        return lines.join('\n');
    }

    QVector<ProgramFile> files;

private:
    const TestDir m_dir;
    QList<QByteArray> m_contents;
};

/// Files that a scripted server has.
class Served : public Wanted
{
public:
    /// Adds a file that the server has, too.
    void serve(const QString& name, const QByteArray& contents)
    {
        add(name, contents);
        server.serve('/' + name, HttpReply::ok(contents));
    }

    Downloads::Settings settings(int jobs = 6, int stallSeconds = patient) const
    {
        return Wanted::settings(server.url("/index.txt"), jobs, stallSeconds);
    }

    HttpServer server;
};

/// The end of @p body from @p first on, as the reply to a range request.
HttpReply rest(const QByteArray& body, int first)
{
    HttpReply reply = HttpReply::error(206, body.mid(first));
    reply.headers.append("Content-Range: bytes " + QByteArray::number(first) + '-' +
                         QByteArray::number(body.size() - 1) + '/' +
                         QByteArray::number(body.size()));
    return reply;
}

HttpReply encoded(HttpReply reply)
{
    reply.headers.append("Content-Encoding: gzip");
    return reply;
}

/// A reply that never comes to its end, over a connection that stays open.
HttpReply stalled(const QByteArray& body, int bytes)
{
    HttpReply reply = HttpReply::ok(body.left(bytes));
    reply.declaredLength = body.size();
    return reply;
}

/// The value of the line @p name in the header of a request; empty when there is none.
QByteArray headerLine(const QByteArray& header, const QByteArray& name)
{
    for (const QByteArray& line : header.split('\n')) {
        if (line.toLower().startsWith(name.toLower() + ':'))
            return line.mid(name.size() + 1).trimmed();
    }
    return QByteArray();
}

/// A server for @p root that packs everything.
QByteArray packingSite(const QString& root, quint16 port)
{
    return "gzip on; gzip_types *; gzip_min_length 1;\n"
           "default_type application/octet-stream;\n"
           "server { listen 127.0.0.1:" +
           QByteArray::number(port) + "; root " + QFile::encodeName(root) + "; }\n";
}

/// What the server says of how it packs the body at @p url.
QByteArray encodingOf(const QString& url)
{
    QNetworkAccessManager manager;
    QNetworkRequest request{QUrl(url)};
    request.setRawHeader("Accept-Encoding", "gzip");
    const std::unique_ptr<QNetworkReply> reply(manager.get(request));
    const bool came = QTest::qWaitFor([&] { return reply->isFinished(); }, 30000);
    return came ? reply->rawHeader("Content-Encoding") : "nothing came";
}

QString versionFileAt(const TcpRelay& relay)
{
    return QString("http://127.0.0.1:%1/index.txt").arg(relay.port());
}

} // namespace

class TestGuardDownloads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // ---- What goes well

    void releaseComesFromARealServer()
    {
        NEEDS_NGINX();
        const TestDir root;
        Wanted wanted;
        const auto publish = [&](const QString& name, const QByteArray& contents) {
            files::write(root / name, contents);
            wanted.add(name, contents);
        };
        for (int i = 0; i < 200; ++i) {
            publish(QString("Contents/Resources/%1.lproj/File %2.strings").arg(i % 7).arg(i),
                    noise(100 + 37 * i));
            if (i % 80 == 10)
                publish(QString("Contents/large%1.bin").arg(i), noise(4000000 + i));
        }
        const Nginx server(root.path());
        Run run(wanted.settings(server.url("/index.txt")), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(wanted.missing(run), QString());
        QCOMPARE(server.requests().size(), wanted.files.size());
        qint64 total = 0;
        for (const ProgramFile& file : std::as_const(wanted.files))
            total += static_cast<qint64>(file.size);
        QCOMPARE(run.downloads.bytesDownloaded(), total);
        QCOMPARE(run.downloads.bytesReused(), 0);
        QVERIFY(!run.downloads.isDiskFull());
    }

    void listDecidesTheOrder()
    {
        Served served;
        QStringList paths;
        for (const char* name : {"m.txt", "a.txt", "z/last.txt", "B.txt", "c.txt"}) {
            served.serve(name, name);
            paths.append(QString("/") + name);
        }
        Run run(served.settings(1), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(served.server.requests(), paths);
        QCOMPARE(run.settled, served.keys());
        QCOMPARE(served.missing(run), QString());
    }

    void transfersRunAtOnce_data()
    {
        QTest::addColumn<int>("jobs");
        QTest::addColumn<int>("atOnce");
        row("none", 0, 1);
        row("one", 1, 1);
        row("three", 3, 3);
        row("as many as a manager has", 6, 6);
        row("one more", 7, 7);
        row("several managers", 15, 15);
        row("more than files", 30, 20);
        row("beyond reason", std::numeric_limits<int>::max(), 20);
    }

    void transfersRunAtOnce()
    {
        QFETCH(int, jobs);
        QFETCH(int, atOnce);
        Served served;
        QStringList first;
        for (int i = 0; i < 20; ++i) {
            const QString name = QString("%1.txt").arg(i, 2, 10, QLatin1Char('0'));
            served.serve(name, name.toUtf8());
            served.server.serve('/' + name, HttpReply::hold(HttpReply::ok(name.toUtf8())));
            if (i < atOnce)
                first.append('/' + name);
        }
        Run run(served.settings(jobs), served.files);
        run.downloads.start();
        QTRY_COMPARE(served.server.requests().size(), atOnce);
        QStringList asked = served.server.requests();
        asked.sort();
        QCOMPARE(asked, first);
        served.server.release();
        QTRY_VERIFY(run.isOver());
        QCOMPARE(served.server.mostInFlight(), atOnce);
        QCOMPARE(served.missing(run), QString());
    }

    void slowFileHoldsUpNoOther()
    {
        Served served;
        for (const char* name : {"slow.txt", "a.txt", "b.txt", "c.txt"})
            served.serve(name, name);
        served.server.serve("/slow.txt", HttpReply::hold(HttpReply::ok("slow.txt")));
        Run run(served.settings(2), served.files);
        run.downloads.start();
        QTRY_COMPARE(run.namesOf(State::Ready), (QStringList{"a.txt", "b.txt", "c.txt"}));
        QCOMPARE(run.namesOf(State::Waiting), QStringList{"slow.txt"});
        served.server.release();
        QTRY_VERIFY(run.isOver());
        QCOMPARE(served.missing(run), QString());
    }

    void bodyComesInAnyForm_data()
    {
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<QByteArray>("contents");
        const QByteArray large = noise(3000000);
        row("empty", HttpReply::ok(""), QByteArray(""));
        row("one byte", HttpReply::ok("1"), QByteArray("1"));
        row("large", HttpReply::ok(large), large);
        row("in chunks", HttpReply::chunked(large), large);
        row("packed", HttpReply::gzipped(large), large);
        const QByteArray zeros(3000000, '\0');
        row("packed to very little", HttpReply::gzipped(zeros), zeros);
    }

    void bodyComesInAnyForm()
    {
        QFETCH(HttpReply, reply);
        QFETCH(QByteArray, contents);
        Served served;
        served.add("file", contents);
        served.server.serve("/file", reply);
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(served.missing(run), QString());
        QCOMPARE(served.server.requests(), QStringList{"/file"});
        QCOMPARE(run.downloads.bytesDownloaded(), contents.size());
    }

    void nameIsAskedForAsTheUpdaterDoes_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("request");
        row("space", "a b.txt", "/editor/a%20b.txt");
        row("percent", "100%.txt", "/editor/100%25.txt");
        row("escape", "a%20b.txt", "/editor/a%20b.txt");
        row("question mark", "a?b.txt", "/editor/a?b.txt");
        row("number sign", "a#b.txt", "/editor/a");
        row("umlaut", QString::fromLatin1("\xfc.txt"), "/editor/%C3%BC.txt");
    }

    void nameIsAskedForAsTheUpdaterDoes()
    {
        QFETCH(QString, name);
        QFETCH(QString, request);
        Served served;
        served.add(name, "contents");
        served.server.serve(request, HttpReply::ok("contents"));
        Run run(served.Wanted::settings(served.server.url("/editor/index.txt")), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(served.server.requests(), QStringList{request});
        QCOMPARE(served.missing(run), QString());
    }

    void sameContentsAreFetchedOnce()
    {
        Served served;
        served.serve("first.txt", "the same");
        served.serve("other.txt", "not the same");
        served.serve("second.txt", "the same");
        served.files[2].sha1 = served.files.at(2).sha1.toUpper();
        // At once: the second one must not find what the first one has saved.
        Run run(served.settings(3), served.files);
        QVERIFY(run.toTheEnd());
        QStringList asked = served.server.requests();
        asked.sort();
        QCOMPARE(asked, (QStringList{"/first.txt", "/other.txt"}));
        QCOMPARE(served.missing(run), QString());
        QCOMPARE(run.downloads.pathOf(served.files.at(0)),
                 run.downloads.pathOf(served.files.at(2)));
        QCOMPARE(run.downloads.bytesDownloaded(), 20);
    }

    void nothingHappensBeforeTheStart()
    {
        Served served;
        served.serve("a.txt", "a");
        Run run(served.settings(), served.files);
        QCoreApplication::processEvents();
        QCOMPARE(run.downloads.stateOf(served.files.at(0)), State::Waiting);
        QCOMPARE(served.server.requests(), QStringList());
        QCOMPARE(files::list(served.directory()), QStringList());
        run.downloads.start();
        QCOMPARE(run.settled, QStringList()); // Not before the event loop runs.
        QTRY_COMPARE(run.settled, served.keys());
    }

    void noFilesAreNoWork()
    {
        Served served;
        Run run(served.settings(), {});
        QVERIFY(run.toTheEnd());
        QCoreApplication::processEvents();
        QCOMPARE(served.missing(run), QString());
        QCOMPARE(served.server.requests(), QStringList());
    }

    void onlyGivenFilesAreKnown()
    {
        Served served;
        served.serve("a.txt", "a");
        const ProgramFile a = served.files.at(0);
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        const ProgramFile other{"b.txt", a.sha1, a.size};
        QVERIFY(!run.downloads.contains(other));
        QCOMPARE(run.downloads.stateOf(other), State::Failed);
        const ProgramFile larger{"a.txt", a.sha1, 2};
        QVERIFY(!run.downloads.contains(larger));
        QCOMPARE(run.downloads.stateOf(larger), State::Failed);
        const ProgramFile upper{"a.txt", a.sha1.toUpper(), 1};
        QVERIFY(run.downloads.contains(a) && run.downloads.contains(upper));
        QCOMPARE(run.downloads.stateOf(upper), State::Ready);
    }

    // ---- gzip

    void packedFilesComeFromARealServer_data()
    {
        QTest::addColumn<QByteArray>("contents");
        row("text", QByteArray("a line of a text\n").repeated(200000));
        row("noise", noise(3000000));
        row("zeros", QByteArray(30000000, '\0'));
    }

    void packedFilesComeFromARealServer()
    {
        NEEDS_NGINX();
        QFETCH(QByteArray, contents);
        const TestDir root;
        files::write(root / "file", contents);
        const Nginx server("http", [&](quint16 port) { return packingSite(root.path(), port); });
        QCOMPARE(encodingOf(server.url("/file")), QByteArray("gzip"));
        Wanted wanted;
        wanted.add("file", contents);
        Run run(wanted.settings(server.url("/index.txt")), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(wanted.missing(run), QString());
        QCOMPARE(run.downloads.bytesDownloaded(), contents.size());
    }

    // ---- Cut, and continued

    void realServerContinues_data()
    {
        QTest::addColumn<TcpRelay::Ending>("ending");
        QTest::addColumn<bool>("packed");
        QTest::addColumn<QList<qint64>>("cuts");
        for (const bool packed : {false, true}) {
            const QString how = packed ? ", packed" : ", plain";
            row("closed" + how, TcpRelay::Close, packed, QList<qint64>{2000000});
            row("closed twice" + how, TcpRelay::Close, packed, QList<qint64>{2000000, 1000000});
            row("closed soon" + how, TcpRelay::Close, packed, QList<qint64>{1000});
            row("reset" + how, TcpRelay::Reset, packed, QList<qint64>{2000000});
        }
    }

    void realServerContinues()
    {
        NEEDS_NGINX();
        QFETCH(TcpRelay::Ending, ending);
        QFETCH(bool, packed);
        QFETCH(QList<qint64>, cuts);
        const QByteArray contents = noise(4000000);
        const TestDir root;
        files::write(root / "file", contents);
        const Nginx server("http", [&](quint16 port) {
            const QByteArray site = packingSite(root.path(), port);
            return packed ? site : QByteArray(site).replace("gzip on", "gzip off");
        });
        TcpRelay line(server.port());
        line.cut(cuts, ending);
        Wanted wanted;
        wanted.add("file", contents);
        Run run(wanted.settings(versionFileAt(line)), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(wanted.missing(run), QString());
        QVERIFY(line.connections() > cuts.size());
        // What was there was not fetched a second time.
        QCOMPARE(run.downloads.bytesDownloaded(), contents.size());
        QCOMPARE(run.downloads.bytesReused(), 0);
    }

    void partOfAnEarlierRunIsContinued_data()
    {
        QTest::addColumn<int>("bytes");
        QTest::addColumn<int>("requests");
        row("nothing", 0, 1);
        row("one byte", 1, 1);
        row("half", 1000000, 1);
        row("all but one byte", 1999999, 1);
        row("everything", 2000000, 0);
    }

    void partOfAnEarlierRunIsContinued()
    {
        NEEDS_NGINX();
        QFETCH(int, bytes);
        QFETCH(int, requests);
        const QByteArray contents = noise(2000000);
        const TestDir root;
        files::write(root / "file", contents);
        const Nginx server(root.path());
        Wanted wanted;
        wanted.add("file", contents);
        files::write(wanted.partPath(), contents.left(bytes));
        files::setMode(wanted.partPath(), 0600);
        Run run(wanted.settings(server.url("/index.txt")), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(wanted.missing(run), QString());
        QCOMPARE(server.requests().size(), requests);
        QCOMPARE(run.downloads.bytesDownloaded(), contents.size() - bytes);
        QCOMPARE(run.downloads.bytesReused(), bytes);
    }

    void wrongPartIsFetchedWhole_data()
    {
        QTest::addColumn<QByteArray>("part");
        QTest::addColumn<int>("requests");
        row("wrong start", QByteArray(1000, 'w'), 2);
        row("wrong and as long", QByteArray(2000, 'w'), 1);
        row("longer", QByteArray(2001, 'w'), 1);
    }

    void wrongPartIsFetchedWhole()
    {
        NEEDS_NGINX();
        QFETCH(QByteArray, part);
        QFETCH(int, requests);
        const QByteArray contents = noise(2000);
        const TestDir root;
        files::write(root / "file", contents);
        const Nginx server(root.path());
        Wanted wanted;
        wanted.add("file", contents);
        files::write(wanted.partPath(), part);
        Run run(wanted.settings(server.url("/index.txt")), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(wanted.missing(run), QString());
        QCOMPARE(server.requests().size(), requests);
        QCOMPARE(run.downloads.bytesReused(), 0);
    }

    void restIsAskedForUnpacked()
    {
        Served served;
        served.add("file", "the contents");
        files::write(served.partPath(), "the ");
        files::setMode(served.partPath(), 0600);
        served.server.serve("/file", rest("the contents", 4));
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(headerLine(served.server.lastHeader(), "Range"), QByteArray("bytes=4-"));
        QCOMPARE(headerLine(served.server.lastHeader(), "Accept-Encoding"), QByteArray("identity"));
        QCOMPARE(served.missing(run), QString());
    }

    void wholeIsAskedForInAnyForm()
    {
        Served served;
        served.serve("file", "the contents");
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(headerLine(served.server.lastHeader(), "Range"), QByteArray());
        QVERIFY(headerLine(served.server.lastHeader(), "Accept-Encoding").contains("gzip"));
    }

    /// What comes instead of the rest, and whether that counts as one of the three tries: after it
    /// the server sends rubbish twice, and only then the file.
    void replyToARangeRequest_data()
    {
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<bool>("isTry");
        QTest::addColumn<bool>("isEnough"); // The file is there after this reply.

        const QByteArray body("the whole of the contents");
        const int have = 10;
        const HttpReply good = rest(body, have);
        const auto withRange = [&](const QByteArray& range) {
            HttpReply reply = HttpReply::error(206, body.mid(have));
            reply.headers.append("Content-Range: " + range);
            return reply;
        };
        row("the rest", good, false, true);
        row("the rest, in another case", withRange("BYTES 10-24/25"), false, true);
        row("the rest of an unknown whole", withRange("bytes 10-24/*"), false, true);
        row("the whole", HttpReply::ok(body), false, true);

        row("another start", rest(body, have - 1), true, false);
        row("a later start", rest(body, have + 1), true, false);
        row("the start", withRange("bytes 0-9/25"), true, false);
        row("no range", HttpReply::error(206, body.mid(have)), true, false);
        row("no number", withRange("bytes x-24/25"), true, false);
        row("no bytes", withRange("lines 10-24/25"), true, false);
        row("an empty range", withRange(""), true, false);
        row("unit alone", withRange("bytes "), true, false);
        row("status 416", HttpReply::error(416), true, false);
        row("status 404", HttpReply::error(404, "no such file"), true, false);
        row("status 503", HttpReply::error(503), true, false);
        row("status 204", HttpReply::error(204), true, false);
        row("redirect", HttpReply::redirect("/other"), true, false);

        row("the rest, packed", encoded(good), false, false);
        row("the whole, packed", HttpReply::gzipped(body), false, false);
        HttpReply wrong = good;
        wrong.body.fill('w');
        row("a wrong rest", wrong, false, false);
        HttpReply shorter = good;
        shorter.body.chop(1);
        row("a shorter rest", shorter, false, false);
        HttpReply longer = good;
        longer.body.append('l');
        row("a longer rest", longer, false, false);
        row("a wrong whole", HttpReply::ok(QByteArray(body.size(), 'w')), true, false);
        row("a longer whole", HttpReply::ok(body + 'l'), true, false);
    }

    void replyToARangeRequest()
    {
        QFETCH(HttpReply, reply);
        QFETCH(bool, isTry);
        QFETCH(bool, isEnough);
        const QByteArray body("the whole of the contents");
        Served served;
        served.add("file", body);
        files::write(served.partPath(), body.left(10));
        files::setMode(served.partPath(), 0600);
        const HttpReply rubbish = HttpReply::error(404);
        served.server.serveInTurn("/file", {reply, rubbish, rubbish, HttpReply::ok(body)});
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        if (isTry) {
            QCOMPARE(run.namesOf(State::Failed), QStringList{"file"});
            QCOMPARE(served.server.requests().size(), 3);
            QCOMPARE(run.downloads.bytesReused(), 0);
        } else {
            QCOMPARE(served.missing(run), QString());
            QCOMPARE(served.server.requests().size(), isEnough ? 1 : 4);
            QCOMPARE(run.downloads.bytesReused(), reply.status == 206 && isEnough ? 10 : 0);
        }
        if (!isEnough) // Nothing was kept of it.
            QCOMPARE(headerLine(served.server.lastHeader(), "Range"), QByteArray());
    }

    /// Only an answer says something about the part.
    void noAnswerLeavesThePart()
    {
        Served served;
        const QByteArray body("the whole of the contents");
        served.add("file", body);
        files::write(served.partPath(), body.left(10));
        files::setMode(served.partPath(), 0600);
        HttpReply silent;
        silent.silent = true;
        served.server.serveInTurn("/file", {silent, silent, rest(body, 10)});
        Run run(served.settings(6, 1), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(served.missing(run), QString());
        QCOMPARE(headerLine(served.server.lastHeader(), "Range"), QByteArray("bytes=10-"));
        QCOMPARE(run.downloads.bytesReused(), 10);
    }

    void missingServerLeavesThePart()
    {
        Wanted wanted;
        wanted.add("file", "the whole of the contents");
        files::write(wanted.partPath(), "the whole");
        Run run(wanted.settings("http://127.0.0.1:1/index.txt"), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.namesOf(State::Failed), QStringList{"file"});
        QCOMPARE(files::read(wanted.partPath()), QByteArray("the whole"));
        QCOMPARE(run.downloads.bytesReused(), 0);
    }

    void serverWithoutRangesSendsTheWholeAgain()
    {
        Served served;
        const QByteArray body = noise(100000);
        served.add("file", body);
        served.server.serveInTurn("/file", {HttpReply::cutShort(body, 60000), HttpReply::ok(body)});
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(served.missing(run), QString());
        QCOMPARE(headerLine(served.server.lastHeader(), "Range"), QByteArray("bytes=60000-"));
        QCOMPARE(run.downloads.bytesDownloaded(), 160000);
    }

    // ---- What goes wrong

    void faultIsTriedThreeTimes_data()
    {
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<QString>("failure"); // After the name; empty for what Qt says.
        QTest::addColumn<bool>("leavesPart");
        QTest::addColumn<int>("requests");
        QTest::addColumn<bool>("repeated"); // By Qt, on its own count, when a connection ends.

        const QByteArray body = faultyBody();
        const QString ofQt;
        row("status 404", HttpReply::error(404, "no such file"),
            "the server answered with status 404", false, 3, false);
        row("status 404 with the body", HttpReply::error(404, body),
            "the server answered with status 404", false, 3, false);
        row("status 500", HttpReply::error(500), "the server answered with status 500", false, 3,
            false);
        row("status 206", HttpReply::error(206, body), "the server answered with status 206", false,
            3, false);
        row("redirect", HttpReply::redirect("/other"), "the server answered with status 302", false,
            3, false);
        row("redirect with the body", HttpReply::redirect("/other", body),
            "the server answered with status 302", false, 3, false);
        row("cut", HttpReply::cutShort(body, 2000), ofQt, true, 3, true);
        row("cut in the header", HttpReply::cutShort(body, 0), ofQt, true, 3, true);
        row("cut in a chunk", HttpReply::cutChunked(body), ofQt, true, 3, true);
        row("shorter", HttpReply::ok(body.left(4999)), "4999 bytes came instead of 5000", false, 3,
            false);
        row("shorter, in chunks", HttpReply::chunked(body.left(4999)), "the transfer ended early",
            true, 3, false);
        // For the rest such a server sends the whole, packed: of no use, but no try.
        row("shorter, packed", HttpReply::gzipped(body.left(4999)), "the transfer ended early",
            true, 5, false);
        row("nothing", HttpReply::ok(""), "0 bytes came instead of 5000", false, 3, false);
        row("longer", HttpReply::ok(body + 'l'), "more than 5000 bytes came", false, 3, false);
        row("much longer, packed", HttpReply::gzipped(body + QByteArray(2000000, 'l')),
            "more than 5000 bytes came", false, 3, false);
        const QByteArray wrong(5000, 'w');
        row("wrong", HttpReply::ok(wrong),
            "the SHA-1 is " + files::sha1(wrong) + " instead of " + files::sha1(body), false, 3,
            false);
    }

    void faultIsTriedThreeTimes()
    {
        QFETCH(HttpReply, reply);
        QFETCH(QString, failure);
        QFETCH(bool, leavesPart);
        QFETCH(int, requests);
        QFETCH(bool, repeated);
        Served served;
        served.add("sub/faulty.bin", faultyBody());
        served.serve("good.txt", "good");
        served.server.serve("/sub/faulty.bin", reply);
        served.server.serve("/other", HttpReply::ok(faultyBody()));
        Run run(served.settings(1), served.files);
        QVERIFY(run.toTheEnd());

        QCOMPARE(run.namesOf(State::Failed), QStringList{"sub/faulty.bin"});
        QCOMPARE(run.namesOf(State::Ready), QStringList{"good.txt"});
        QCOMPARE(run.settled, served.keys());
        if (failure.isEmpty())
            QVERIFY(run.downloads.failure().startsWith("sub/faulty.bin: "));
        else
            QCOMPARE(run.downloads.failure(), "sub/faulty.bin: " + failure);
        QVERIFY(!run.downloads.isDiskFull());
        const int asked = served.server.requestsFor("/sub/faulty.bin");
        QVERIFY2(asked == requests || (repeated && asked > requests),
                 qPrintable(QString::number(asked)));
        QCOMPARE(served.server.requestsFor("/other"), 0);
        QStringList left{Downloads::keyOf(served.files.at(1))};
        if (leavesPart)
            left.append(Downloads::keyOf(served.files.at(0)) + ".part");
        left.sort();
        QCOMPARE(files::list(served.directory()), left);
    }

    void twoFaultsAreForgiven_data() { faultIsTriedThreeTimes_data(); }

    void twoFaultsAreForgiven()
    {
        QFETCH(HttpReply, reply);
        QFETCH(bool, repeated);
        Served served;
        served.add("faulty.bin", faultyBody());
        served.server.serveInTurn("/faulty.bin", {reply, reply, HttpReply::ok(faultyBody())});
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(served.missing(run), QString());
        const auto asked = served.server.requests().size();
        QVERIFY2(asked == 3 || (repeated && asked > 3), qPrintable(QString::number(asked)));
    }

    void stalledTransferIsContinued()
    {
        Served served;
        const QByteArray body = noise(100000);
        served.add("file", body);
        HttpReply stalledRest = rest(body, 40000);
        stalledRest.body = stalledRest.body.left(30000);
        stalledRest.declaredLength = 60000;
        served.server.serveInTurn("/file", {stalled(body, 40000), stalledRest, rest(body, 70000)});
        Run run(served.settings(6, 2), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(served.missing(run), QString());
        QCOMPARE(served.server.requests().size(), 3);
        QCOMPARE(run.downloads.bytesDownloaded(), body.size());
    }

    void stalledTransferFailsInTheEnd_data()
    {
        QTest::addColumn<HttpReply>("reply");
        HttpReply silent;
        silent.silent = true;
        row("half a body", stalled("the contents", 6));
        if (!everyRowIsWanted()) // Each takes three seconds.
            return;
        row("no answer", silent);
        row("no body", stalled("the contents", 0));
    }

    void stalledTransferFailsInTheEnd()
    {
        QFETCH(HttpReply, reply);
        Served served;
        served.add("stalled.txt", "the contents");
        served.serve("good.txt", "good");
        served.server.serve("/stalled.txt", reply);
        Run run(served.settings(1, 1), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.namesOf(State::Failed), QStringList{"stalled.txt"});
        QCOMPARE(run.namesOf(State::Ready), QStringList{"good.txt"});
        QCOMPARE(run.downloads.failure(), QString("stalled.txt: nothing came for 1 seconds"));
        QCOMPARE(served.server.requestsFor("/stalled.txt"), 3);
    }

    /// The whole takes longer than a stall.
    void slowTransferIsNoStall()
    {
        const QByteArray contents("slowly");
        int requests = 0;
        const StreamingServer server([&](QTcpSocket* client) {
            ++requests;
            client->write("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\n");
            auto* timer = new QTimer(client);
            QObject::connect(timer, &QTimer::timeout, client, [=, next = 0]() mutable {
                if (next < contents.size())
                    client->write(contents.mid(next++, 1));
            });
            timer->start(400);
        });
        Wanted wanted;
        wanted.add("file", contents);
        Run run(wanted.settings(server.url().toString(), 1, 2), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(wanted.missing(run), QString());
        QCOMPARE(requests, 1);
    }

    void endlessBodyIsStopped()
    {
        qint64 sent = 0;
        int requests = 0;
        const QByteArray block(65536, 'x');
        const StreamingServer server([&](QTcpSocket* client) {
            ++requests;
            QObject::connect(client, &QTcpSocket::bytesWritten, client, [&, client](qint64 count) {
                sent += count;
                if (client->bytesToWrite() < block.size())
                    client->write(block);
            });
            client->write("HTTP/1.1 200 OK\r\n\r\n");
        });
        Wanted wanted;
        wanted.add("file", "xxx");
        Run run(wanted.settings(server.url().toString()), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.downloads.failure(), QString("file: more than 3 bytes came"));
        QCOMPARE(requests, 3);
        QCOMPARE(run.downloads.bytesDownloaded(), 0);
        // The rest is what the system's buffers take, three times.
        QVERIFY2(sent < 60000000, qPrintable(QString::number(sent)));
    }

    void nobodyListens()
    {
        Wanted wanted;
        wanted.add("a.txt", "a");
        wanted.add("b.txt", "b");
        Run run(wanted.settings("http://127.0.0.1:1/index.txt"), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.namesOf(State::Failed), (QStringList{"a.txt", "b.txt"}));
        QCOMPARE(files::list(wanted.directory()), QStringList());
    }

    void urlIsNotOverHttp()
    {
        Wanted wanted;
        wanted.add("a.txt", "a");
        const TestDir dir;
        files::write(dir / "a.txt", "a");
        Run run(wanted.settings("file://" + dir.path() + "/index.txt"), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.downloads.failure(), QString("a.txt: no answer over HTTP"));
    }

    void invalidDigestIsNotAskedFor_data()
    {
        QTest::addColumn<QString>("sha1");
        const QString valid = files::sha1("contents");
        row("empty", QString());
        row("short", valid.left(39));
        row("long", valid + '0');
        row("another letter", valid.left(39) + 'g');
        row("a sign", '-' + valid.left(39));
        row("a path", QString("../../../../../../../../../../etc/passwd"));
        row("a directory", QString("0123456789012345678901234567890123456/ab"));
        row("spaces", QString(40, ' '));
        row("other digits", QString(40, QChar(0x0663)));
        row("letters that are made lower", QString(40, QChar(0x212a)));
    }

    void invalidDigestIsNotAskedFor()
    {
        QFETCH(QString, sha1);
        Served served;
        served.add(ProgramFile{"bad.txt", sha1, 8});
        served.add(ProgramFile{"worse.txt", sha1, 9});
        served.serve("good.txt", "good");
        QCOMPARE(Downloads::keyOf(served.files.at(0)), QString());
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.namesOf(State::Failed), (QStringList{"bad.txt", "worse.txt"}));
        QCOMPARE(run.namesOf(State::Ready), QStringList{"good.txt"});
        QCOMPARE(run.settled, served.keys());
        QCOMPARE(run.downloads.failure(),
                 QString("bad.txt: the SHA-1 in the version file is none"));
        QCOMPARE(served.server.requests(), QStringList{"/good.txt"});
        QCOMPARE(files::list(served.directory()),
                 QStringList{Downloads::keyOf(served.files.at(2))});
    }

    void keyIsDigestAndSize()
    {
        const QString sha1("A9993E364706816ABA3E25717850C26C9CD0D89D");
        QCOMPARE(Downloads::keyOf({"a", sha1, 3}),
                 QString("a9993e364706816aba3e25717850c26c9cd0d89d-3"));
        QCOMPARE(Downloads::keyOf({"b", sha1.toLower(), std::numeric_limits<quint64>::max()}),
                 QString("a9993e364706816aba3e25717850c26c9cd0d89d-18446744073709551615"));
    }

    void sizeBeyondAllFilesFails()
    {
        Served served;
        served.serve("a.txt", "a");
        served.files[0].size = std::numeric_limits<quint64>::max();
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.downloads.failure(),
                 QString("a.txt: 1 bytes came instead of 18446744073709551615"));
    }

    // ---- What earlier runs left

    void verifiedFileIsUsedAgain()
    {
        Served served;
        served.serve("a.txt", "contents of a");
        served.serve("b.txt", "contents of b");
        served.serve("empty.txt", "");
        {
            Run run(served.settings(), served.files);
            QVERIFY(run.toTheEnd());
            QCOMPARE(run.downloads.bytesReused(), 0);
        }
        QCOMPARE(served.server.requests().size(), 3);
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(served.missing(run), QString());
        QCOMPARE(served.server.requests().size(), 3);
        QCOMPARE(run.downloads.bytesReused(), 26);
        QCOMPARE(run.downloads.bytesDownloaded(), 0);
    }

    void whatIsInTheWayIsReplaced_data()
    {
        QTest::addColumn<QString>("suffix");
        QTest::addColumn<QString>("kind");
        for (const char* suffix : {"", ".part"}) {
            for (const char* kind : {"wrong", "short", "long", "empty", "link", "link to the start",
                                     "dangling link", "directory", "fifo"})
                row(QString("%1%2").arg(kind, suffix), suffix, kind);
        }
    }

    void whatIsInTheWayIsReplaced()
    {
        QFETCH(QString, suffix);
        QFETCH(QString, kind);
        Served served;
        served.serve("a.txt", "the contents");
        const TestDir elsewhere;
        files::write(elsewhere / "whole", "the contents");
        files::write(elsewhere / "start", "the ");
        const QString path = served.path() + suffix;
        if (kind == "wrong")
            files::write(path, "wrong  bytes");
        else if (kind == "short")
            files::write(path, "wrong");
        else if (kind == "long")
            files::write(path, "the contents and more");
        else if (kind == "empty")
            files::write(path, "");
        else if (kind == "link")
            files::link(elsewhere / "whole", path);
        else if (kind == "link to the start")
            files::link(elsewhere / "start", path);
        else if (kind == "dangling link")
            files::link(elsewhere / "missing", path);
        else if (kind == "directory")
            files::makeDirectory(path);
        else if (kind == "fifo")
            tree::makeFifo(path);
        if (QFileInfo(path).isFile() && !QFileInfo(path).isSymLink())
            files::setMode(path, 0600);
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(served.missing(run), QString());
        QVERIFY(!QFileInfo(served.path()).isSymLink());
        QCOMPARE(run.downloads.bytesReused(), 0);
        QCOMPARE(files::list(elsewhere.path()), (QStringList{"start", "whole"}));
        QCOMPARE(files::read(elsewhere / "whole"), QByteArray("the contents"));
        QCOMPARE(files::read(elsewhere / "start"), QByteArray("the "));
    }

    void whatCannotBeReplacedFails_data()
    {
        QTest::addColumn<QString>("suffix");
        row("in place of the file", "");
        row("in place of the part", ".part");
    }

    void whatCannotBeReplacedFails()
    {
        QFETCH(QString, suffix);
        Served served;
        served.serve("a.txt", "the contents");
        served.serve("b.txt", "more contents");
        files::write(served.path() + suffix + "/file", "in the way");
        Run run(served.settings(1), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.namesOf(State::Failed), QStringList{"a.txt"});
        QCOMPARE(run.namesOf(State::Ready), QStringList{"b.txt"});
        QVERIFY(run.downloads.failure().startsWith("a.txt: cannot be written: "));
        QVERIFY(!run.downloads.isDiskFull());
        QCOMPARE(served.server.requestsFor("/a.txt"), 1);
    }

    void missingDirectoryIsNotTriedAgain()
    {
        Served served;
        served.serve("a.txt", "the contents");
        Downloads::Settings settings = served.settings();
        settings.directory += "/missing";
        Run run(settings, served.files);
        QVERIFY(run.toTheEnd());
        QVERIFY(run.downloads.failure().startsWith("a.txt: cannot be written: "));
        QVERIFY(!run.downloads.isDiskFull());
        QCOMPARE(served.server.requests().size(), 1);
    }

    void endOfTheObjectLeavesThePart()
    {
        Served served;
        const QByteArray body = noise(100000);
        served.add("file", body);
        served.server.serveInTurn("/file", {stalled(body, 40000), rest(body, 40000)});
        {
            Run run(served.settings(), served.files);
            run.downloads.start();
            QTRY_COMPARE(run.downloads.bytesDownloaded(), 40000);
        }
        QCOMPARE(files::read(served.partPath()), body.left(40000));
        Run run(served.settings(), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(served.missing(run), QString());
        QCOMPARE(run.downloads.bytesReused(), 40000);
        QCOMPARE(run.downloads.bytesDownloaded(), 60000);
    }

    // ---- No room

    void fullDiskEndsEverything()
    {
        if (!ownprocess::isOne()) {
            const TestDir dir;
            files::makeDirectory(dir / "disk");
            UNDER_TMPFS(command, dir / "disk", "size=1m");
            const QByteArray failure = ownprocess::failureOf(
                QTest::currentTestFunction(), {{diskVariable, dir / "disk"}}, *command);
            QVERIFY2(failure.isNull(), failure.constData());
            return;
        }
        Served served;
        served.serve("small.txt", "small");
        served.serve("large.bin", noise(3000000));
        served.serve("held.txt", "held");
        served.serve("later.txt", "later");
        served.server.serve("/held.txt", HttpReply::hold(HttpReply::ok("held")));
        Downloads::Settings settings = served.settings(2);
        settings.directory = qEnvironmentVariable(diskVariable);
        // The large file must find the other one running.
        served.files.swapItemsAt(1, 2);
        Run run(settings, served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.namesOf(State::Ready), QStringList{"small.txt"});
        QCOMPARE(run.namesOf(State::Failed), (QStringList{"held.txt", "large.bin", "later.txt"}));
        QVERIFY(run.downloads.isDiskFull());
        QVERIFY2(run.downloads.failure().contains("cannot be written"),
                 qPrintable(run.downloads.failure()));
        QCOMPARE(run.settled.size(), 4);
        QCOMPARE(served.server.requestsFor("/large.bin"), 1);
        QCOMPARE(served.server.requestsFor("/held.txt"), 1);
        QCOMPARE(served.server.requestsFor("/later.txt"), 0);
        served.server.release();
        QCoreApplication::processEvents();
        QCOMPARE(run.settled.size(), 4);
    }

    void fileBeyondTheLimitEndsAlone()
    {
        IN_OWN_PROCESS();
        Served served;
        served.serve("large.bin", noise(3000000));
        served.serve("small.txt", "small");
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000000, 1000000};
        QCOMPARE(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        Run run(served.settings(1), served.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.namesOf(State::Ready), QStringList{"small.txt"});
        QVERIFY(run.downloads.failure().startsWith("large.bin: cannot be written: "));
        QVERIFY(!run.downloads.isDiskFull());
        QCOMPARE(served.server.requestsFor("/large.bin"), 1);
    }

    // ---- Size

    /// The memory that a file takes must not grow with it.
    void largeFileTakesLittleMemory_data()
    {
        QTest::addColumn<bool>("packed");
        row("plain", false);
        row("packed", true);
    }

    void largeFileTakesLittleMemory()
    {
        NEEDS_NGINX();
        if (!everyRowIsWanted())
            QSKIP("200 MiB: only with UPDATER_TEST_EVERYTHING");
        if (!ownprocess::isOne()) {
            // Else AddressSanitizer keeps what is freed.
            const QByteArray failure = ownprocess::failureOf(
                QString("%1:%2").arg(QTest::currentTestFunction(), QTest::currentDataTag()),
                {{"ASAN_OPTIONS", "quarantine_size_mb=1"}});
            QVERIFY2(failure.isNull(), failure.constData());
            return;
        }
        QFETCH(bool, packed);
        const qint64 size = 200 * 1024 * 1024;
        const TestDir root;
        QFile large(root / "large.bin");
        QVERIFY(large.open(QIODevice::WriteOnly) && large.resize(size));
        large.close();
        Wanted wanted;
        wanted.add(tree::seenByTools(root.path()).value("large.bin"));
        QCOMPARE(wanted.files.at(0).size, static_cast<quint64>(size));
        const Nginx server("http", [&](quint16 port) {
            const QByteArray site = packingSite(root.path(), port);
            return packed ? site : QByteArray(site).replace("gzip on", "gzip off");
        });
        const qint64 before = peakMemory();
        Run run(wanted.settings(server.url("/index.txt")), wanted.files);
        QVERIFY(run.toTheEnd());
        QCOMPARE(run.namesOf(State::Ready), QStringList{"large.bin"});
        const qint64 grown = peakMemory() - before;
        QVERIFY2(grown < 40000, qPrintable(QString("%1 KiB").arg(grown)));
    }

private:
    static QByteArray faultyBody() { return noise(5000); }
};

UPDATER_TEST_MAIN(TestGuardDownloads)
#include "tst_guarddownloads.moc"
