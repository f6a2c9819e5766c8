// Version files at the edges: no entry and a hundred thousand, a changelog of 100 MB, names that no
// file can have, zero bytes, random bytes, and a file cut at every length.

#include "manifest/ManifestText.h"
#include "updater/Updater.h"

#include "tests/support/ChangelogFile.h"
#include "tests/support/EditorRelease.h"
#include "tests/support/LiteralReader.h"
#include "tests/support/Records.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Row.h"
#include "tests/support/Scene.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"

#include <QNetworkReply>

#include <cstring>
#include <random>

namespace {

constexpr int segmentSize = 32;

/// A release with @p count files, which hold their own names.
ProgramData releaseOf(int count)
{
    ProgramData data = editorRelease("2.0", {}, true, QByteArray("News of 2.0").toBase64());
    for (int i = 0; i < count; ++i) {
        const QByteArray name = "Contents/Resources/file" + QByteArray::number(i) + ".dat";
        data.files.append(tree::entry(name, name));
    }
    return data;
}

QByteArray textOf(const ProgramData& data)
{
    return tree::versionFile(data).toLatin1();
}

/// What the literal reader makes of @p body, of which only what stands before a zero byte counts.
ProgramData literalReading(const QByteArray& body)
{
    const auto zero = body.indexOf('\0');
    const QByteArray read = zero < 0 ? body : body.left(zero);
    ProgramData data;
    literal::read("Editor", QString::fromLatin1(read), data);
    return data;
}

/// A reply that is there already.
class FinishedReply : public QNetworkReply
{
    Q_OBJECT

public:
    explicit FinishedReply(const QByteArray& body) : m_body(body)
    {
        open(QIODevice::ReadOnly);
        setFinished(true);
    }

    void abort() override {}
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override
    {
        return QNetworkReply::bytesAvailable() + m_body.size() - m_read;
    }

protected:
    qint64 readData(char* data, qint64 most) override
    {
        const qint64 size = qMin(most, qint64(m_body.size()) - m_read);
        std::memcpy(data, m_body.constData() + m_read, static_cast<size_t>(size));
        m_read += size;
        return size;
    }

private:
    const QByteArray m_body;
    qint64 m_read = 0;
};

/// Lets the handler of a check have @p body, and returns the record that it has read.
ProgramData handled(const QByteArray& body)
{
    Updater updater("Editor", "", "1.0", "", "", "");
    UpdaterProbe state(updater);
    state.checkOnly = true;
    auto* reply = new FinishedReply(body); // Deletes itself later.
    QObject::connect(reply, SIGNAL(finished()), &updater, SLOT(getVersionFinished()));
    Q_EMIT reply->finished();
    return state.programData;
}

/// The report of @p data in a host's segment.
QByteArray reportOf(const ProgramData& data)
{
    return HostProcess::reported(data.version.toLatin1(), data.required, segmentSize);
}

/// A scene whose version file is written by the test.
class WrittenScene : public ServedScene
{
public:
    void publish(const QByteArray& text) { server.serve("/index.txt", HttpReply::ok(text)); }

    /// Publishes a release of one file.
    void publishFile(const QByteArray& name)
    {
        ProgramData data = releaseOf(0);
        data.files.append(tree::entry(name, "contents"));
        publish(textOf(data));
        server.serve('/' + name, HttpReply::ok("contents"));
    }

    QByteArray check() { return ServedScene::check(segmentSize); }

    /// What was written for the changelog of @p version; "(none)" when there is no file.
    QByteArray changelog(const QString& version) const
    {
        const QString path = tmpDir + '/' + changelogFileName(version);
        return QFile::exists(path) ? files::read(path) : QByteArray("(none)");
    }
};

/// Bodies of every kind of disorder; the same ones everywhere.
class RandomBodies
{
public:
    explicit RandomBodies(unsigned seed) : m_random(seed) {}

    QByteArray next()
    {
        switch (number(4)) {
        case 0:
            return bytes(number(600));
        case 1:
            return damaged(number(12) + 1);
        case 2:
            return shuffled();
        default:
            return "<Editor><version>" + bytes(number(20)) + "</version>" + shuffled() +
                   "</Editor>";
        }
    }

private:
    int number(int below) { return static_cast<int>(m_random() % static_cast<unsigned>(below)); }

    QByteArray bytes(int count)
    {
        QByteArray result;
        while (result.size() < count)
            result.append(static_cast<char>(number(256)));
        return result;
    }

    /// A whole version file with random bytes in @p places.
    QByteArray damaged(int places)
    {
        QByteArray text = textOf(releaseOf(3));
        for (int i = 0; i < places; ++i) {
            const int at = number(static_cast<int>(text.size()));
            text.replace(at, number(4), bytes(number(4)));
        }
        return text;
    }

    /// Pieces of version files in any order, with random bytes now and then.
    QByteArray shuffled()
    {
        static const QList<QByteArray> pieces{
            "<Editor>",
            "</Editor>",
            "<version>",
            "</version>",
            "2.0",
            "<required>",
            "true",
            "</required>",
            "<changelog>",
            "</changelog>",
            "Y2w=",
            "<file>",
            "</file>",
            "<name>a</name>",
            "<sha1>5a</sha1>",
            "<size>1</size>",
            "\n\t",
            "<file><name>b</name><sha1>5b</sha1><size>2</size></file>"};
        QByteArray text;
        for (int i = number(40); i > 0; --i) {
            const int piece = number(static_cast<int>(pieces.size()) + 1);
            text += piece < pieces.size() ? pieces.at(piece) : bytes(number(3));
        }
        return text;
    }

    std::mt19937 m_random;
};

/// What can be read of the writer's text for @p data, when its record is cut after @p length
/// characters and closed there: what is complete before the cut.
struct CutReading
{
    bool result = false;
    ProgramData data;
};

CutReading expectedOfCutRecord(const ProgramData& data, const QString& text, int length)
{
    const auto complete = [&](const QString& tag) {
        const auto at = text.indexOf(tag);
        return at >= 0 && at + tag.size() <= length;
    };
    CutReading reading;
    const auto firstTag = text.indexOf("<version>");
    if (length > firstTag)
        reading.data.name = "Editor";
    if (!complete("</version>"))
        return reading;
    reading.result = true;
    reading.data.version = data.version;
    reading.data.required = data.required && complete("</required>");
    if (complete("</changelog>"))
        reading.data.changelog = data.changelog;
    auto end = text.indexOf("</file>");
    for (const ProgramFile& file : data.files) {
        if (end + 7 <= length)
            reading.data.files.append(file);
        end = text.indexOf("</file>", end + 1);
    }
    return reading;
}

} // namespace

Q_DECLARE_METATYPE(ProgramData)

class TestExtremes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<TestDir>();
        m_scope = std::make_unique<ScopedTmpDir>(m_dir->path());
    }

    void cleanup()
    {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        m_scope.reset();
        m_dir.reset();
    }

    // ---- Many entries

    void checkReadsAnyNumberOfEntries_data()
    {
        QTest::addColumn<int>("count");
        row("none", 0);
        row("1", 1);
        row("1,000", 1000);
        row("100,000", 100000);
    }

    void checkReadsAnyNumberOfEntries()
    {
        QFETCH(int, count);
        const ProgramData data = releaseOf(count);
        const QByteArray text = textOf(data);
        const ProgramData read = handled(text);
        QCOMPARE(static_cast<int>(read.files.size()), count);
        QVERIFY(records::same(read, data));

        WrittenScene scene;
        scene.publish(text);
        QCOMPARE(scene.check(), reportOf(data));
        QCOMPARE(scene.changelog("2.0"), data.changelog.toLatin1());
        QCOMPARE(scene.server.requests(), QStringList{"/index.txt"});
    }

    void updateSelectsFromAnyNumberOfEntries_data()
    {
        QTest::addColumn<int>("files");
        QTest::addColumn<int>("entries");
        QTest::addColumn<int>("missing");
        row("1, and missing", 1, 1, 1);
        row("1, in place", 1, 1, 0);
        row("1,000, 40 of them missing", 1000, 1000, 40);
        row("100,000 of 100 files, in place", 100, 100000, 0);
        row("100,000 of 100 files, one missing at the end", 100, 100000, 1);
    }

    /// The entries name the files over and over; the missing ones are named at the end, once each.
    void updateSelectsFromAnyNumberOfEntries()
    {
        QFETCH(int, files);
        QFETCH(int, entries);
        QFETCH(int, missing);
        WrittenScene scene;
        ProgramData data = releaseOf(files);
        const QVector<ProgramFile> all = data.files;
        const auto present = files - missing;
        data.files.clear();
        for (int i = 0; i < entries - missing; ++i)
            data.files.append(all.at(i % present));
        QStringList requests{"/index.txt"};
        Tree release;
        for (int i = 0; i < files; ++i) {
            const QString name = all.at(i).name;
            const QByteArray contents = name.toLatin1();
            release.insert(name, contents);
            if (i < present) {
                files::write(scene.installedPath(name), contents);
            } else {
                data.files.append(all.at(i));
                scene.server.serve('/' + name, HttpReply::ok(contents));
                requests.append('/' + name);
            }
        }
        QCOMPARE(static_cast<int>(data.files.size()), entries);
        scene.publish(textOf(data));
        QCOMPARE(scene.update(), 0);
        QCOMPARE(scene.server.requests(), requests);
        QCOMPARE(scene.differencesFrom(release), QString());
    }

    // ---- Large and long values

    void changelogOf100MegabytesArrives()
    {
        ProgramData data = releaseOf(1);
        QByteArray payload = QByteArray("TmV3cyBvZiAyLjAK+/0123456789abcd").repeated(3276800);
        QCOMPARE(static_cast<int>(payload.size()), 100 * 1024 * 1024);
        payload.replace(0, 4, "Rmly");
        payload.replace(payload.size() - 4, 4, "bGE=");
        data.changelog = "@";
        WrittenScene scene;
        scene.publish(textOf(data).replace("@", payload));
        QCOMPARE(scene.check(), reportOf(data));
        QVERIFY(scene.changelog("2.0") == payload);
        QCOMPARE(scene.server.requests(), QStringList{"/index.txt"});
    }

    void nameAsLongAsAFileNameMayBeIsInstalled()
    {
        const QByteArray name = QByteArray(251, 'n') + ".dat";
        WrittenScene scene;
        scene.publishFile(name);
        QCOMPARE(scene.update(), 0);
        QCOMPARE(scene.server.requestsFor('/' + name), 1);
        QCOMPARE(release::read(scene.installDir), Tree({{name, "contents"}}));
    }

    void nameThatNoFileCanHaveIsFetchedWithoutEnd_data()
    {
        QTest::addColumn<QByteArray>("name");
        row("one byte too many", QByteArray(256, 'n'));
        row("4,096 bytes", QByteArray(4096, 'n'));
        row("4,096 bytes in directories",
            (QByteArray(127, 'd') + '/').repeated(32).replace(4095, 1, "n"));
    }

    void nameThatNoFileCanHaveIsFetchedWithoutEnd()
    {
        QFETCH(QByteArray, name);
        {
            WrittenScene scene;
            scene.publishFile(name);
            QCOMPARE(scene.check(), reportOf(releaseOf(0)));
        }
        WrittenScene scene;
        scene.publishFile(name);
        scene.start();
        // Far more often than failures are allowed.
        QVERIFY(scene.waitForRequests(name, 25));
        QVERIFY(scene.updater.isRunning());
        QCOMPARE(scene.server.requestsFor("/index.txt"), 1);
        QCOMPARE(files::list(scene.installDir), QStringList());
    }

    // ---- Zero bytes

    void zeroByteEndsTheTextWhereverItStands()
    {
        const ProgramData data = releaseOf(3);
        const QByteArray text = textOf(data);
        const auto recordEnd = text.indexOf("</Editor>") + 9;
        for (int at = 0; at <= text.size(); ++at) {
            QByteArray body = text;
            body.insert(at, '\0');
            const ProgramData expected = at >= recordEnd ? data : ProgramData();
            COMPARE_RECORDS(handled(body), expected, body);
        }
        // In place of each byte, with a whole record after it.
        for (int at = 0; at < text.size(); ++at) {
            QByteArray body = text + text;
            body[at] = '\0';
            const ProgramData expected = at >= recordEnd ? data : ProgramData();
            COMPARE_RECORDS(handled(body), expected, body);
        }
    }

    /// The record is closed before the zero byte and once more, with more in it, after it.
    void nothingAfterAZeroByteIsRead_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<ProgramData>("expected");
        const QByteArray zero(1, '\0');
        const ProgramData data = releaseOf(2);
        const QByteArray text = textOf(data);
        row("first byte", zero + text, ProgramData());
        row("nothing else", zero.repeated(1000), ProgramData());
        row("in the opening tag of the record", QByteArray(text).insert(3, zero), ProgramData());
        row("in the version", QByteArray(text).replace("2.0", "2." + zero + "0"), ProgramData());
        row("in the changelog", QByteArray(text).replace("</changelog>", zero + "</changelog>"),
            ProgramData());
        row("before the end of the record",
            QByteArray(text).replace("</Editor>", zero + "</Editor>"), ProgramData());
        row("after the record", text + zero + "<Editor>", data);
    }

    void nothingAfterAZeroByteIsRead()
    {
        QFETCH(QByteArray, body);
        QFETCH(ProgramData, expected);
        WrittenScene scene;
        scene.publish(body);
        QCOMPARE(scene.check(), reportOf(expected));
        QCOMPARE(scene.changelog("2.0"),
                 expected.changelog.isEmpty() ? "(none)" : expected.changelog.toLatin1());
    }

    // ---- Random bytes, and next to none

    void randomBodiesAreReadAsByTheLiteralReader()
    {
        constexpr int bodies = 8000;
        RandomBodies random(1);
        int withVersion = 0;
        int withFile = 0;
        int withZero = 0;
        for (int i = 0; i < bodies; ++i) {
            const QByteArray body = random.next();
            const ProgramData expected = literalReading(body);
            COMPARE_RECORDS(handled(body), expected, body);
            withVersion += !expected.version.isEmpty();
            withFile += !expected.files.isEmpty();
            withZero += body.contains('\0');
        }
        qInfo("of %d bodies: with a version %d, with a file %d, with a zero byte %d", bodies,
              withVersion, withFile, withZero);
        QVERIFY(withVersion > bodies / 4);
        QVERIFY(withVersion < bodies * 3 / 4);
        QVERIFY(withFile > bodies / 10);
        QVERIFY(withZero > bodies / 20);
    }

    void unusualBodiesAreChecked_data()
    {
        QTest::addColumn<QByteArray>("body");
        row("empty", QByteArray());
        row("one byte", QByteArray("<"));
        row("line ends", QByteArray("\r\n").repeated(1000));
        row("only the tags of the record", QByteArray("<Editor></Editor>"));
        row("opening tags", QByteArray("<Editor>").repeated(500000));
        row("files without end",
            "<Editor><version>2.0</version>" + QByteArray("<file>").repeated(500000) + "</Editor>");
        row("upper half of the bytes",
            "<Editor><version>\xE4\xFF\x80</version></Editor>" + QByteArray(100000, '\xFF'));
        RandomBodies random(2);
        for (int i = 0; i < 8; ++i)
            row(QString("random %1").arg(i), random.next());
    }

    void unusualBodiesAreChecked()
    {
        QFETCH(QByteArray, body);
        const ProgramData expected = literalReading(body);
        WrittenScene scene;
        scene.publish(body);
        const QByteArray report = reportOf(expected);
        // A version that the segment cannot hold leaves it alone.
        const bool fits = expected.version.size() + 3 <= segmentSize;
        QCOMPARE(scene.check(), fits ? report : HostProcess::untouched(segmentSize));
    }

    // ---- Cut short

    void textCutBeforeItsEndIsUnreadable()
    {
        const ProgramData data = releaseOf(3);
        const QString text = tree::versionFile(data);
        const auto recordEnd = text.indexOf("</Editor>") + 9;
        QCOMPARE(recordEnd, text.size() - 1);
        for (int length = 0; length <= text.size(); ++length) {
            const QString cut = text.left(length);
            const bool whole = length >= recordEnd;
            COMPARE_RECORDS(handled(cut.toLatin1()), whole ? data : ProgramData(), cut.toLatin1());
            ProgramData read;
            QCOMPARE(manifest::read("Editor", cut, read), whole);
            COMPARE_RECORDS(read, whole ? data : ProgramData(), cut.toLatin1());
        }
    }

    void recordCutAndClosedHoldsWhatIsComplete()
    {
        const ProgramData data = releaseOf(3);
        const QString text = tree::versionFile(data);
        const auto first = QString("<Editor>").size();
        const auto last = text.indexOf("</Editor>");
        QSet<int> counts;
        for (auto length = static_cast<int>(first); length <= last; ++length) {
            const QString cut = text.left(length) + "</Editor>\n";
            const CutReading expected = expectedOfCutRecord(data, text, length);
            ProgramData read;
            QCOMPARE(manifest::read("Editor", cut, read), expected.result);
            COMPARE_RECORDS(read, expected.data, cut.toLatin1());
            COMPARE_RECORDS(literalReading(cut.toLatin1()), expected.data, cut.toLatin1());
            counts.insert(expected.result ? static_cast<int>(read.files.size()) : -1);
        }
        QCOMPARE(counts, QSet<int>({-1, 0, 1, 2, 3}));
    }

    void cutTextIsChecked_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("closed");
        QTest::addColumn<bool>("versionRead");
        QTest::addColumn<bool>("requiredRead");
        QTest::addColumn<bool>("changelogRead");
        const QByteArray text = textOf(releaseOf(3));
        const auto upTo = [&](const QByteArray& tag) {
            return text.left(text.indexOf(tag) + tag.size());
        };
        row("nothing", QByteArray(), false, false, false, false);
        row("opening tag of the record", upTo("<Editor>"), false, false, false, false);
        row("last byte of the record missing", text.left(text.size() - 2), false, false, false,
            false);
        row("line end missing", text.left(text.size() - 1), false, true, true, true);
        row("closed in the version", upTo("<version>2"), true, false, false, false);
        row("closed after the version", upTo("</version>"), true, true, false, false);
        row("closed after the flag", upTo("</required>"), true, true, true, false);
        row("closed in the changelog", upTo("<changelog>TmV3"), true, true, true, false);
        row("closed in the first file", upTo("<sha1>"), true, true, true, true);
    }

    void cutTextIsChecked()
    {
        QFETCH(QByteArray, body);
        QFETCH(bool, closed);
        QFETCH(bool, versionRead);
        QFETCH(bool, requiredRead);
        QFETCH(bool, changelogRead);
        const ProgramData data = releaseOf(3);
        WrittenScene scene;
        scene.publish(closed ? body + "</Editor>" : body);
        ProgramData expected;
        if (versionRead)
            expected.version = data.version;
        expected.required = requiredRead;
        QCOMPARE(scene.check(), reportOf(expected));
        QCOMPARE(scene.changelog("2.0"),
                 changelogRead ? data.changelog.toLatin1() : QByteArray("(none)"));
    }

private:
    std::unique_ptr<TestDir> m_dir;
    std::unique_ptr<ScopedTmpDir> m_scope;
};

UPDATER_TEST_MAIN(TestExtremes)
#include "tst_extremes.moc"
