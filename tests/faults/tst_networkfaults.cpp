// Trouble on the network, at every position of an update: what is asked for, what the user sees,
// how the run ends and which files are there afterwards.
//
// Runs that show a message box happen inside the test, each in a process of its own; all others are
// runs of the real executable.

#include "updater/Updater.h"

#include "tests/support/EditorRelease.h"
#include "tests/support/MessageBoxes.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/Row.h"
#include "tests/support/Sample.h"
#include "tests/support/Scene.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"

#include <functional>

namespace {

constexpr int anyCode = -1;

/// Above what Qt lets a compressed body inflate to by itself.
constexpr int large = 11 * 1048576;

/// The files of the release, in the order of the version file.
const QStringList& names()
{
    static const QStringList list{"a.txt", "b/data.bin", "c/middle.dat", "d.dat", "e/last.txt"};
    return list;
}

/// Which of the requested files is hit.
enum Position { First = 0, Middle = 2, Last = 4 };

// clang-format off
/// What becomes of a file that the server always sends with the same fault:
///
///             requests   box               exit status   files
///   Good      1          none              0             the release is installed
///   Warned    3          warning, code     1             none is installed; those before it are saved
///   Damaged   3          critical, name    1             the same, and the directory for it is made
///   Broken    3          one of the two    1             the same, with or without the directory
///
/// Broken: the connection ends too early. After such an end Qt sometimes repeats the next request
/// itself, or delivers the truncated body as if it were complete. Where Qt repeats requests (see
/// Fault::repeated), they are counted by the client.
///
/// A version file is fetched once. One that cannot be read (see Fault::versionFileUsed) is reported
/// as an empty version; an update then installs nothing, starts the program and ends with 0.
// clang-format on
enum class Outcome { Good, Warned, Damaged, Broken };

/// One way in which a transfer goes wrong, or only looks so.
struct Fault
{
    const char* name;
    std::function<HttpReply(const QByteArray&)> reply;
    Outcome outcome;
    int code = anyCode;          ///< Of the warning.
    bool versionFileUsed = true; ///< Whether a version file that comes like this can be read.
    bool repeated = false;       ///< Qt sends the request again by itself, as often as it likes.
    bool large = false;          ///< Only happens to large files.
};

HttpReply silent(HttpReply::Ending ending)
{
    HttpReply reply = HttpReply::with(ending, HttpReply());
    reply.silent = true;
    return reply;
}

HttpReply announced(const QByteArray& body, qint64 length)
{
    HttpReply reply = HttpReply::with(HttpReply::Close, HttpReply::ok(body));
    reply.declaredLength = length;
    return reply;
}

HttpReply withoutLength(const QByteArray& body)
{
    HttpReply reply = HttpReply::with(HttpReply::Close, HttpReply::ok(body));
    reply.lengthGiven = false;
    return reply;
}

int half(const QByteArray& body)
{
    return static_cast<int>(body.size() / 2);
}

/// @p status with what it should be as the page; two kinds never have one.
Fault status(const char* name, int status, Outcome outcome, int code = anyCode)
{
    const bool bodiless = status == 204 || status == 304;
    return {name,
            [status, bodiless](const QByteArray& body) {
                HttpReply reply = HttpReply::error(status, bodiless ? QByteArray() : body);
                reply.lengthGiven = !bodiless;
                return reply;
            },
            outcome, code, !bodiless};
}

QList<Fault> faults()
{
    using Bytes = const QByteArray&;
    const bool unreadable = false;
    const bool repeated = true;
    const auto redirect = [](int status) {
        return [status](Bytes page) {
            HttpReply reply = HttpReply::redirect("/elsewhere", page);
            reply.status = status;
            return reply;
        };
    };

    return {
        {"reset before the reply", [](Bytes) { return HttpReply::reset(); }, Outcome::Warned, 2,
         unreadable, repeated},
        {"closed before the reply", [](Bytes) { return silent(HttpReply::Close); }, Outcome::Warned,
         2, unreadable, repeated},
        {"stall before the reply", [](Bytes) { return silent(HttpReply::Stall); }, Outcome::Warned,
         2, unreadable, repeated},
        {"reset before the body", [](Bytes body) { return HttpReply::resetInBody(body, 0); },
         Outcome::Broken, 2, unreadable, repeated},
        {"reset inside the body",
         [](Bytes body) { return HttpReply::resetInBody(body, half(body)); }, Outcome::Broken, 2,
         unreadable, repeated},
        // No codes: part of a body that ends in order may be given out without an error.
        {"closed inside the body", [](Bytes body) { return HttpReply::cutShort(body, half(body)); },
         Outcome::Broken, anyCode, unreadable, repeated},
        {"stall inside the body",
         [](Bytes body) { return HttpReply::stallInBody(body, half(body)); }, Outcome::Broken,
         anyCode, unreadable, repeated},
        // The version file ends with a line end, which can be spared.
        {"one byte short, as announced",
         [](Bytes body) { return HttpReply::ok(body.left(body.size() - 1)); }, Outcome::Damaged},
        {"one byte short, announced in full",
         [](Bytes body) { return HttpReply::cutShort(body, static_cast<int>(body.size()) - 1); },
         Outcome::Broken, anyCode, true, repeated},
        {"one byte long, as announced", [](Bytes body) { return HttpReply::ok(body + '+'); },
         Outcome::Damaged},
        {"one byte long, announced without it",
         [](Bytes body) { return announced(body + '+', body.size()); }, Outcome::Good},
        {"whole, one byte less announced",
         [](Bytes body) { return announced(body, body.size() - 1); }, Outcome::Damaged, anyCode,
         true, repeated},
        {"whole, one byte more announced",
         [](Bytes body) { return announced(body, body.size() + 1); }, Outcome::Broken, anyCode,
         true, repeated},
        {"whole, no length announced", [](Bytes body) { return withoutLength(body); },
         Outcome::Good},
        {"cut, no length announced",
         [](Bytes body) { return withoutLength(body.left(half(body))); }, Outcome::Damaged, anyCode,
         unreadable, repeated},
        {"empty", [](Bytes) { return HttpReply::ok(""); }, Outcome::Damaged, anyCode, unreadable},
        status("200", 200, Outcome::Good),
        status("204", 204, Outcome::Damaged),
        status("206", 206, Outcome::Good),
        status("301", 301, Outcome::Good),
        status("302", 302, Outcome::Good),
        status("304", 304, Outcome::Damaged),
        status("401", 401, Outcome::Warned, 204),
        status("403", 403, Outcome::Warned, 201),
        status("404", 404, Outcome::Warned, 203),
        status("405", 405, Outcome::Warned, 202),
        status("410", 410, Outcome::Warned, 207),
        status("418", 418, Outcome::Warned, 302),
        status("500", 500, Outcome::Warned, 401),
        status("503", 503, Outcome::Warned, 403),
        {"301 with a target and the right page", redirect(301), Outcome::Good},
        {"302 with a target and the right page", redirect(302), Outcome::Good},
        {"303 with a target and the right page", redirect(303), Outcome::Good},
        {"307 with a target and the right page", redirect(307), Outcome::Good},
        {"308 with a target and the right page", redirect(308), Outcome::Good},
        {"redirect with another page", [=](Bytes) { return redirect(302)("It has moved."); },
         Outcome::Damaged, anyCode, unreadable},
        {"error page", [](Bytes) { return HttpReply::error(404, "Not here."); }, Outcome::Warned,
         203, unreadable},
        {"chunks", [](Bytes body) { return HttpReply::chunked(body); }, Outcome::Good},
        {"chunks, cut", [](Bytes body) { return HttpReply::cutChunked(body); }, Outcome::Broken,
         anyCode, unreadable, repeated},
        {"gzip", [](Bytes body) { return HttpReply::gzipped(body); }, Outcome::Good},
        {"gzip that inflates past 10 MiB", [](Bytes body) { return HttpReply::gzipped(body); },
         Outcome::Good, anyCode, true, false, true},
    };
}

/// A release, an old installation, and a server that takes the expected requests only.
class StrictScene : public ServedScene
{
public:
    explicit StrictScene(int largeFile = -1)
    {
        for (int i = 0; i < names().size(); ++i)
            published[names().at(i)] =
                QByteArray(3000 + i, static_cast<char>('a' + i)) + "published";
        if (largeFile >= 0)
            published[names().at(largeFile)] = QByteArray(large, '0');
        Tree old{{"unlisted.txt", "not in the release"}};
        for (const QString& name : names())
            old[name] = "old";
        install(old);
        exe = dir / "bin/Editor";
        program.install(exe, "Editor");
    }

    QByteArray versionFile() const
    {
        QVector<ProgramFile> files;
        for (const QString& name : names())
            files.append(tree::entry(name, published[name]));
        return editorVersionFile("2.0", files);
    }

    void expectVersionFile(HttpReply::Ending ending = HttpReply::KeepAlive)
    {
        server.expect("/r/index.txt", HttpReply::with(ending, HttpReply::ok(versionFile())));
    }

    /// Expects the requests for the files number @p from to @p to, all of them good; the
    /// connection ends with @p ending.
    void expectFiles(int from, int to, HttpReply::Ending ending = HttpReply::KeepAlive)
    {
        for (int i = from; i <= to; ++i)
            server.expect(pathOf(i), HttpReply::with(i == to ? ending : HttpReply::KeepAlive,
                                                     HttpReply::ok(published[names().at(i)])));
    }

    /// Expects all good requests up to the one before file number @p position.
    void expectAllBefore(int position, HttpReply::Ending ending = HttpReply::KeepAlive)
    {
        expectVersionFile(position == 0 ? ending : HttpReply::KeepAlive);
        expectFiles(0, position - 1, ending);
    }

    /// Expects a request for file number @p position, and has @p fault happen to it.
    void expectFault(int position, const Fault& fault)
    {
        expectFault(pathOf(position), fault, published[names().at(position)]);
    }

    void expectFault(const QString& path, const Fault& fault, const QByteArray& body)
    {
        if (fault.repeated)
            server.expectRepeated(path, fault.reply(body));
        else
            server.expect(path, fault.reply(body));
    }

    static QString pathOf(int file) { return "/r/" + names().at(file); }

    QString indexUrl() const { return server.url("/r/index.txt"); }

    int update() { return Scene::update(indexUrl()); }
    QByteArray check() { return Scene::check(indexUrl()); }

    /// Updates inside the test's process. @p afterFileTry is called, with the number of file
    /// transfers that have ended, before the updater learns of the end of each.
    /// @return The exit status; endless when it has not ended.
    int updateHere(const std::function<void(int)>& afterFileTry = {})
    {
        return Scene::updateHere(indexUrl(), [this, afterFileTry](Updater& updaterHere) {
            UpdaterProbe state(updaterHere);
            QObject::connect(&state.netManager, &QNetworkAccessManager::finished, &updaterHere,
                             [this, afterFileTry] {
                                 server.endRepeats();
                                 if (fileTries >= 0 && afterFileTry)
                                     afterFileTry(fileTries + 1);
                                 ++fileTries;
                             });
        });
    }

    /// What differs from an update that was given up at file number @p position. A file that
    /// arrived damaged has left its directory.
    QString traces(int position, Outcome outcome) const
    {
        QString lines = tracesBesides(names().mid(0, position));
        const QString name = names().at(position);
        const QString directory = downloadedPath(name.section('/', 0, 0));
        if (name.contains('/') && outcome != Outcome::Broken &&
            QFile::exists(directory) != (outcome == Outcome::Damaged))
            lines += "\ndirectory of " + name;
        return lines;
    }

    MessageBoxes boxes;
    int fileTries = -1; ///< Ended transfers of an update in this process, less the version file's.
};

const Fault& faultNamed(const QString& name)
{
    static const QList<Fault> all = faults();
    for (const Fault& fault : all) {
        if (name == fault.name)
            return fault;
    }
    qFatal("no such fault: %s", qPrintable(name));
}

Fault good()
{
    return {"none", HttpReply::ok, Outcome::Good};
}

/// The request may go out on the connection that is just breaking, and then goes out again.
Fault goodAfterABreak()
{
    Fault fault = good();
    fault.repeated = true;
    return fault;
}

QString textOf(const QStringList& lines)
{
    return lines.join('\n');
}

/// Adds a row for each fault that is @p wanted, at one position, each at the next one; at all three
/// positions when every row is wanted.
void addFaultsAndPositions(const std::function<bool(const Fault&)>& wanted)
{
    QTest::addColumn<QString>("faultName");
    QTest::addColumn<int>("position");
    const QList<std::pair<const char*, int>> positions{
        {"first", First}, {"middle", Middle}, {"last", Last}};
    int turn = 0;
    const QList<Fault> all = faults();
    for (const Fault& fault : all) {
        if (!wanted(fault))
            continue;
        for (int i = 0; i < positions.size(); ++i) {
            const auto& [positionName, position] = positions.at(i);
            if (everyRowIsWanted() || i == turn % positions.size())
                row(QString("%1, %2 file").arg(fault.name, positionName), QString(fault.name),
                    position);
        }
        ++turn;
    }
}

} // namespace

class TestNetworkFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // As in the program: a box that closes ends nothing.
        QApplication::setQuitOnLastWindowClosed(false);
    }

    // ---- The version file

    void versionFileInTrouble_data()
    {
        QTest::addColumn<QString>("faultName");
        const QList<Fault> all = faults();
        for (const Fault& fault : all)
            row(fault.name, QString(fault.name));
    }

    void versionFileInTrouble()
    {
        QFETCH(QString, faultName);
        const Fault& fault = faultNamed(faultName);
        {
            StrictScene scene;
            scene.expectFault("/r/index.txt", fault, padded(scene.versionFile(), fault));
            QCOMPARE(scene.check(), HostProcess::reported(fault.versionFileUsed ? "2.0" : ""));
            QCOMPARE(textOf(scene.server.complaints()), QString());
        }
        StrictScene scene;
        scene.expectFault("/r/index.txt", fault, padded(scene.versionFile(), fault));
        if (fault.versionFileUsed)
            scene.expectFiles(First, Last);
        QCOMPARE(scene.update(), 0);
        QCOMPARE(textOf(scene.server.complaints()), QString());
        if (fault.versionFileUsed)
            QCOMPARE(scene.missingOfTheUpdate(), QString());
        else
            verifyOnlyTheProgramWasStarted(scene);
    }

    void versionFileFromARefusedConnection()
    {
        StrictScene scene;
        scene.server.stop();
        QCOMPARE(scene.check(), HostProcess::reported(""));
        QCOMPARE(scene.update(), 0);
        verifyOnlyTheProgramWasStarted(scene);
    }

    // ---- The files

    void harmlessOddityIsNoFault_data()
    {
        addFaultsAndPositions([](const Fault& fault) { return fault.outcome == Outcome::Good; });
    }

    void harmlessOddityIsNoFault()
    {
        QFETCH(QString, faultName);
        QFETCH(int, position);
        const Fault& fault = faultNamed(faultName);
        StrictScene scene(fault.large ? position : -1);
        scene.expectAllBefore(position);
        scene.expectFault(position, fault);
        scene.expectFiles(position + 1, Last);
        QCOMPARE(scene.update(), 0);
        QCOMPARE(textOf(scene.server.complaints()), QString());
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    void threeFaultsEndTheUpdate_data()
    {
        addFaultsAndPositions([](const Fault& fault) { return fault.outcome != Outcome::Good; });
    }

    void threeFaultsEndTheUpdate()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, faultName);
        QFETCH(int, position);
        const Fault& fault = faultNamed(faultName);
        StrictScene scene;
        scene.expectAllBefore(position);
        for (int i = 0; i < 3; ++i)
            scene.expectFault(position, fault);
        QCOMPARE(scene.updateHere(), 1);
        QCOMPARE(textOf(scene.server.complaints()), QString());
        QCOMPARE(scene.fileTries, position + 3);
        verifyBox(scene, position, fault);
        QCOMPARE(scene.traces(position, fault.outcome), QString());
    }

    void oneOrTwoFaultsAreRepaired_data()
    {
        addFaultsAndPositions([](const Fault& fault) { return fault.outcome != Outcome::Good; });
    }

    void oneOrTwoFaultsAreRepaired()
    {
        QFETCH(QString, faultName);
        QFETCH(int, position);
        const Fault& fault = faultNamed(faultName);
        // Where Qt repeats requests, only the client can tell one try from the next.
        if (fault.repeated)
            IN_OWN_PROCESS();
        for (int times = 1; times <= 2; ++times) {
            StrictScene scene;
            scene.expectAllBefore(position);
            for (int i = 0; i < times; ++i)
                scene.expectFault(position, fault);
            scene.expectFault(position, fault.repeated ? goodAfterABreak() : good());
            scene.expectFiles(position + 1, Last);
            QCOMPARE(fault.repeated ? scene.updateHere() : scene.update(), 0);
            QCOMPARE(textOf(scene.server.complaints()), QString());
            QCOMPARE(scene.boxes.summaries(), QStringList());
            // A process starts one program.
            const bool starts = !fault.repeated || times == 1;
            QCOMPARE(scene.missingOfTheUpdate(starts), QString());
        }
    }

    void brokenTransferHasItsCode_data()
    {
        addFaultsAndPositions([](const Fault& fault) {
            return fault.outcome == Outcome::Broken && fault.code != anyCode;
        });
    }

    /// The tries before leave the connection whole, so that the break is reported as one.
    void brokenTransferHasItsCode()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, faultName);
        QFETCH(int, position);
        Fault fault = faultNamed(faultName);
        fault.outcome = Outcome::Warned;
        StrictScene scene;
        scene.expectAllBefore(position);
        scene.expectFault(position, faultNamed("404"));
        scene.expectFault(position, faultNamed("404"));
        scene.expectFault(position, fault);
        QCOMPARE(scene.updateHere(), 1);
        QCOMPARE(textOf(scene.server.complaints()), QString());
        verifyBox(scene, position, fault);
        QCOMPARE(scene.traces(position, Outcome::Warned), QString());
    }

    void redirectIsNotFollowedToAnotherServer_data()
    {
        QTest::addColumn<int>("status");
        for (const int status : {301, 302, 303, 307, 308})
            row(QString::number(status), status);
    }

    void redirectIsNotFollowedToAnotherServer()
    {
        IN_OWN_PROCESS();
        QFETCH(int, status);
        HttpServer other;
        other.serveAllElse(HttpReply::ok("anything"));
        StrictScene scene;
        const auto lead = [&](int position) {
            HttpReply reply =
                HttpReply::redirect(other.url(StrictScene::pathOf(position)), "moved");
            reply.status = status;
            return reply;
        };
        scene.expectVersionFile();
        for (int i = 0; i < 3; ++i)
            scene.server.expect(StrictScene::pathOf(First), lead(First));
        QCOMPARE(scene.updateHere(), 1);
        QCOMPARE(textOf(scene.server.complaints()), QString());
        QCOMPARE(scene.boxes.summaries(),
                 QStringList(MessageBoxes::damagedFile(names().at(First))));
        QCOMPARE(other.requests(), QStringList());
    }

    // ---- A server that goes

    void serverThatIsGoneEndsTheUpdate_data() { addPositionsOnly(); }

    void serverThatIsGoneEndsTheUpdate()
    {
        IN_OWN_PROCESS();
        QFETCH(int, position);
        StrictScene scene;
        scene.expectAllBefore(position, HttpReply::Stop);
        QCOMPARE(scene.updateHere(), 1);
        QCOMPARE(textOf(scene.server.complaints()), QString());
        QCOMPARE(scene.fileTries, position + 3);
        QCOMPARE(scene.boxes.summaries(), QStringList(MessageBoxes::transferError(1)));
        QCOMPARE(scene.traces(position, Outcome::Warned), QString());
    }

    void serverThatComesBackBetweenTriesIsUsed_data()
    {
        QTest::addColumn<int>("position");
        QTest::addColumn<int>("failures");
        for (const int position : {First, Middle, Last}) {
            for (const int failures : {1, 2})
                row(QString("file %1, back after %2").arg(position).arg(failures), position,
                    failures);
        }
    }

    void serverThatComesBackBetweenTriesIsUsed()
    {
        IN_OWN_PROCESS();
        QFETCH(int, position);
        QFETCH(int, failures);
        StrictScene scene;
        scene.expectAllBefore(position, HttpReply::Stop);
        scene.expectFiles(position, Last);
        QCOMPARE(scene.updateHere([&](int tries) {
            if (tries == position + failures)
                scene.server.comeBack();
        }),
                 0);
        QCOMPARE(textOf(scene.server.complaints()), QString());
        QCOMPARE(scene.fileTries, failures + static_cast<int>(names().size()));
        QCOMPARE(scene.boxes.summaries(), QStringList());
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    void serverThatRestartsBetweenFilesIsNoticedByNobody_data() { addPositionsOnly(); }

    void serverThatRestartsBetweenFilesIsNoticedByNobody()
    {
        QFETCH(int, position);
        StrictScene scene;
        scene.expectAllBefore(position, HttpReply::Restart);
        scene.expectFiles(position, Last);
        QCOMPARE(scene.update(), 0);
        QCOMPARE(textOf(scene.server.complaints()), QString());
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    // ---- The server itself

    void strictServerComplains()
    {
        StrictScene scene;
        scene.server.expect("/r/index.txt", HttpReply::ok(scene.versionFile()));
        scene.server.expect("/r/never.txt", HttpReply::ok(""));
        scene.server.serve("/r/a.txt", HttpReply::ok(scene.published["a.txt"]));
        scene.updater.start(scene.updateOptions(scene.indexUrl()));
        QTRY_COMPARE(scene.server.requests().size(), 4);
        QVERIFY(!scene.server.isSatisfied());
        QCOMPARE(scene.server.complaints(),
                 QStringList({"came as request 2: /r/a.txt; expected: /r/never.txt",
                              "came as request 3: /r/a.txt; expected: /r/never.txt",
                              "came as request 4: /r/a.txt; expected: /r/never.txt",
                              "never came: /r/never.txt"}));
    }

private:
    static void addPositionsOnly()
    {
        QTest::addColumn<int>("position");
        row("first file", int(First));
        row("middle file", int(Middle));
        row("last file", int(Last));
    }

    static QByteArray padded(const QByteArray& versionFile, const Fault& fault)
    {
        return fault.large ? QByteArray(large, ' ') + versionFile : versionFile;
    }

    static void verifyOnlyTheProgramWasStarted(StrictScene& scene)
    {
        QTRY_COMPARE_WITH_TIMEOUT(scene.program.starts().size(), 1, 30000);
        QCOMPARE(scene.differencesFrom(scene.installed), QString());
        QCOMPARE(scene.leftBehind().size(), 1);
        QVERIFY2(scene.leftBehind().first().startsWith("wUp"),
                 qPrintable(scene.leftBehind().first()));
    }

    static void verifyBox(const StrictScene& scene, int position, const Fault& fault)
    {
        QCOMPARE(scene.boxes.all().size(), 1);
        const QString box = scene.boxes.summaries().first();
        const QString damage = MessageBoxes::damagedFile(names().at(position).section('/', -1));
        const QString anyError = MessageBoxes::transferError(0).chopped(1);
        if (fault.outcome == Outcome::Broken)
            QVERIFY2(box == damage || box.startsWith(anyError), qPrintable(box));
        else if (fault.outcome == Outcome::Damaged)
            QCOMPARE(box, damage);
        else if (fault.code == anyCode)
            QVERIFY2(box.startsWith(anyError), qPrintable(box));
        else
            QCOMPARE(box, MessageBoxes::transferError(fault.code));
    }
};

UPDATER_TEST_MAIN(TestNetworkFaults)
#include "tst_networkfaults.moc"
