// The changelog payload: made from the release notes, and written to a file for the host.

#include "updater/Updater.h"

#include "manifest/ManifestText.h"

#include "tests/support/EditorRelease.h"
#include "tests/support/Messages.h"
#include "tests/support/Needs.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

namespace {

ProgramData record(const QString& version, const QString& changelog)
{
    return editorRelease(version, {}, false, changelog);
}

/// An empty temporary directory, and the one file that the host reads from it.
class Handover
{
public:
    Handover() { files::makeDirectory(tempDir()); }

    QString tempDir() const { return m_dir / "tmp"; }
    QString path(const QString& name) const { return tempDir() + "/" + name; }
    QString outside(const QString& name) const { return m_dir / name; }
    QStringList list() const { return files::list(tempDir()); }

    bool write(const QString& version, const QString& changelog) const
    {
        return m_updater.writeChangelogFile(record(version, changelog));
    }

private:
    const TestDir m_dir;
    const ScopedTmpDir m_tmp{tempDir()};
    const Updater m_updater{"", "", "", "", "", ""};
};

} // namespace

class TestChangelog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void payloadIsTheTextInBase64_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("payload"); // Made with "base64 -w0" from the expected text.
        row("three lines", QByteArray("Version 2.1\n- Faster start-up\n- Fixed printing\n"),
            "VmVyc2lvbiAyLjEKLSBGYXN0ZXIgc3RhcnQtdXAKLSBGaXhlZCBwcmludGluZwo=");
        row("line feed alone", QByteArray("\n"), "Cg==");
        row("two digits of padding", QByteArray("a"), "YQ==");
        row("one digit of padding", QByteArray("ab"), "YWI=");
        row("no padding", QByteArray("abc"), "YWJj");
        row("digit 62", QByteArray(">>>"), "Pj4+");
        row("digit 63", QByteArray("???"), "Pz8/");
        row("space alone", QByteArray(" "), "IA==");
        row("spaces around", QByteArray(" a\t\n"), "IGEJCg==");
        row("markup", QByteArray("<b>&amp;</changelog>\""), "PGI+JmFtcDs8L2NoYW5nZWxvZz4i");
        row("base64 already", QByteArray("Cg=="), "Q2c9PQ==");
        row("zero byte", QByteArray("a\0b", 3), "YQBi");
        row("two bytes per character", QByteArray("Gr\xc3\xb6\xc3\x9f"), "R3LDtsOf");
        row("three bytes per character", QByteArray("\xe2\x82\xac"), "4oKs");
        row("beyond the basic plane", QByteArray("\xf0\x9d\x84\x9e!"), "8J2EniE=");
    }

    void payloadIsTheTextInBase64() { payloadIsThatOfTheRow(); }

    void textModeDropsCarriageReturns_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("payload");
        row("at line ends", QByteArray("a\r\nb\r\n"), "YQpiCg==");
        row("inside a line", QByteArray("a\rb"), "YWI=");
        row("before another", QByteArray("a\r\r\n"), "YQo=");
        row("alone, which leaves no text", QByteArray("\r"), "");
    }

    void textModeDropsCarriageReturns() { payloadIsThatOfTheRow(); }

    void byteOrderMarkIsDropped_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("payload");
        row("before text", QByteArray("\357\273\277abc"), "YWJj");
        row("alone, which leaves no text", QByteArray("\xef\xbb\xbf"), "");
        row("of another encoding, which is decoded", QByteArray("\377\376a\0b\0", 6), "YWI=");
    }

    void byteOrderMarkIsDropped() { payloadIsThatOfTheRow(); }

    void invalidUtf8BecomesTheReplacementCharacter_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("payload");
        row("byte that never occurs", QByteArray("a\377b"), "Ye+/vWI=");
        row("continuation alone", QByteArray("a\200b"), "Ye+/vWI=");
        row("Latin-1", QByteArray("Gr\xf6 "), "R3Lvv70g");
    }

    void invalidUtf8BecomesTheReplacementCharacter() { payloadIsThatOfTheRow(); }

    void longTextIsOneLineOfBase64()
    {
        // An odd byte first, so that the end of each block that is read is inside a character.
        const QByteArray text = "x" + QByteArray("\xc3\xa4\xe2\x82\xac\n").repeated(100000);
        const TestDir dir;
        files::write(dir / "notes", text);
        const QString payload = payloadOf(dir / "notes");
        QVERIFY(!payload.contains('\n'));
        QVERIFY(!payload.contains('\r'));
        QCOMPARE(payload.size(), (text.size() + 2) / 3 * 4);
        QVERIFY(QByteArray::fromBase64(payload.toLatin1()) == text);
    }

    void fileWithoutTextHasNoPayload_data()
    {
        QTest::addColumn<QString>("name");
        row("empty file", "empty");
        row("missing file", "missing");
        row("missing directory", "missing/notes");
        row("directory", "directory");
        row("broken link", "broken");
    }

    void fileWithoutTextHasNoPayload()
    {
        QFETCH(QString, name);
        const TestDir dir;
        files::write(dir / "empty", "");
        files::makeDirectory(dir / "directory");
        files::link("nowhere", dir / "broken");
        QVERIFY(payloadOf(dir / name).isEmpty());
    }

    void unreadableFileHasNoPayload()
    {
        const TestDir dir;
        files::write(dir / "notes", "text");
        files::setMode(dir / "notes", 0);
        ENFORCE_PERMISSIONS();
        QVERIFY(payloadOf(dir / "notes").isEmpty());
    }

    // Qt would print a warning about a file without a name.
    void emptyNameHasNoPayloadAndIsNotTried_data()
    {
        QTest::addColumn<QString>("name");
        row("null", QString());
        row("empty", QString(""));
    }

    void emptyNameHasNoPayloadAndIsNotTried()
    {
        QFETCH(QString, name);
        const Messages messages;
        QVERIFY(payloadOf(name).isEmpty());
        QCOMPARE(messages.all().size(), 0);
    }

    void notesAreLeftAsTheyAre()
    {
        const TestDir dir;
        files::write(dir / "notes", "a\r\n");
        payloadOf(dir / "notes");
        QCOMPARE(files::list(dir.path()), QStringList{"notes"});
        QCOMPARE(files::read(dir / "notes"), QByteArray("a\r\n"));
    }

    void fileIsNamedAfterTheVersion_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("name");
        row("number", "2.1", "velmora_cl_2.1.dat");
        row("spaces around", " 2.1 ", "velmora_cl_2.1.dat");
        row("whitespace around", "\t2.1\r\n", "velmora_cl_2.1.dat");
        row("spaces inside", "2.1  beta", "velmora_cl_2.1  beta.dat");
        row("upper and lower case", "2.1-Beta", "velmora_cl_2.1-Beta.dat");
        row("placeholders", "%1%2", "velmora_cl_%1%2.dat");
        row("backslash", "2\\1", "velmora_cl_2\\1.dat");
        row("only spaces", "  ", "velmora_cl_.dat");
        row("empty", "", "velmora_cl_.dat");
    }

    void fileIsNamedAfterTheVersion()
    {
        QFETCH(QString, version);
        QFETCH(QString, name);
        const Handover handover;
        QVERIFY(handover.write(version, "Cg=="));
        QCOMPARE(handover.list(), QStringList{name});
        QCOMPARE(files::read(handover.path(name)), QByteArray("Cg=="));

        QVERIFY(handover.write(version, ""));
        QVERIFY(handover.list().isEmpty());
    }

    void fileIsInTheTemporaryDirectory_data()
    {
        QTest::addColumn<QString>("tempDir");
        QTest::addColumn<QString>("path");
        row("no separator at the end", "t", "t/velmora_cl_2.1.dat");
        row("slash at the end", "t/", "t/velmora_cl_2.1.dat");
        row("backslash at the end, where no separator is added", "t\\", "t\\velmora_cl_2.1.dat");
        row("backslash inside", "t\\u", "t\\u/velmora_cl_2.1.dat");
    }

    void fileIsInTheTemporaryDirectory()
    {
        QFETCH(QString, tempDir);
        QFETCH(QString, path);
        const TestDir dir;
        files::makeDirectory(dir / tempDir);
        const ScopedTmpDir tmp(dir / tempDir);
        const QStringList before = files::list(dir.path());
        const Updater updater("", "", "", "", "", "");
        QVERIFY(updater.writeChangelogFile(record("2.1", "Cg==")));
        QCOMPARE(added(dir.path(), before), QStringList{path});
        QVERIFY(updater.writeChangelogFile(record("2.1", "")));
        QCOMPARE(files::list(dir.path()), before);
    }

    void programNameDoesNotMatter()
    {
        const Handover handover;
        ProgramData data = record("2.1", "Zmlyc3Q=");
        const Updater first("Editor", "/base", "1.0", "http://host/", "key", "/exe");
        QVERIFY(first.writeChangelogFile(data));
        data.name = "Viewer";
        data.changelog = "c2Vjb25k";
        const Updater second("Viewer", "", "9.9", "", "", "");
        QVERIFY(second.writeChangelogFile(data));
        QCOMPARE(handover.list(), QStringList{"velmora_cl_2.1.dat"});
        QCOMPARE(files::read(handover.path("velmora_cl_2.1.dat")), QByteArray("c2Vjb25k"));
    }

    void fileIsThePayloadToTheByte_data()
    {
        QTest::addColumn<QString>("payload");
        QTest::addColumn<QByteArray>("contents");
        row("base64 text, not decoded", "VmVyc2lvbiAyLjEK", QByteArray("VmVyc2lvbiAyLjEK"));
        row("no base64", "<not base64>", QByteArray("<not base64>"));
        row("space, which is not empty", " ", QByteArray(" "));
        row("whitespace", " a\r\nb\n", QByteArray(" a\r\nb\n"));
        row("beyond ASCII, as UTF-8", QString::fromUtf8("ä€"), QByteArray("\xc3\xa4\xe2\x82\xac"));
        row("long", QString(100000, 'Q'), QByteArray(100000, 'Q'));
    }

    void fileIsThePayloadToTheByte()
    {
        QFETCH(QString, payload);
        QFETCH(QByteArray, contents);
        const Handover handover;
        QVERIFY(handover.write("2.1", payload));
        QCOMPARE(files::read(handover.path("velmora_cl_2.1.dat")), contents);
    }

    void fileOfAnEarlierRunIsReplaced()
    {
        const Handover handover;
        QVERIFY(handover.write("2.1", "a longer text than the next one"));
        QVERIFY(handover.write("2.1", "Cg=="));
        QVERIFY(handover.write("2.1", "Cg=="));
        QCOMPARE(handover.list(), QStringList{"velmora_cl_2.1.dat"});
        QCOMPARE(files::read(handover.path("velmora_cl_2.1.dat")), QByteArray("Cg=="));
    }

    void fileOfAnotherVersionStays()
    {
        const Handover handover;
        QVERIFY(handover.write("2.0", "b2xk"));
        QVERIFY(handover.write("2.1", "bmV3"));
        QVERIFY(handover.write("2.1", ""));
        QCOMPARE(handover.list(), QStringList{"velmora_cl_2.0.dat"});
    }

    void nothingIsWrittenWithoutPayload_data()
    {
        QTest::addColumn<QString>("payload");
        row("null", QString());
        row("empty", QString(""));
    }

    void nothingIsWrittenWithoutPayload()
    {
        QFETCH(QString, payload);
        const Handover handover;
        QVERIFY(handover.write("2.1", payload));
        QVERIFY(handover.list().isEmpty());

        files::write(handover.path("velmora_cl_2.1.dat"), "of an earlier run");
        QVERIFY(handover.write("2.1", payload));
        QVERIFY(handover.list().isEmpty());
    }

    // The link is removed first. Opening it for writing would overwrite its target.
    void linkAtThePathIsRemovedAndItsTargetStays_data()
    {
        QTest::addColumn<QString>("payload");
        QTest::addColumn<QStringList>("left");
        row("payload", "Cg==", QStringList{"velmora_cl_2.1.dat"});
        row("no payload", "", QStringList());
    }

    void linkAtThePathIsRemovedAndItsTargetStays()
    {
        QFETCH(QString, payload);
        QFETCH(QStringList, left);
        const Handover handover;
        files::write(handover.outside("target"), "target");
        files::link(handover.outside("target"), handover.path("velmora_cl_2.1.dat"));
        QVERIFY(handover.write("2.1", payload));
        QCOMPARE(handover.list(), left);
        QCOMPARE(files::read(handover.outside("target")), QByteArray("target"));
        if (!left.isEmpty())
            QCOMPARE(files::read(handover.path(left[0])), QByteArray("Cg=="));
    }

    void versionWithSlashPointsIntoADirectory()
    {
        const Handover handover;
        QVERIFY(!handover.write("2/1", "Cg=="));
        QVERIFY(handover.write("2/1", ""));
        QVERIFY(handover.list().isEmpty());

        files::makeDirectory(handover.path("velmora_cl_2"));
        QVERIFY(handover.write("2/1", "Cg=="));
        QCOMPARE(handover.list(), QStringList({"velmora_cl_2/", "velmora_cl_2/1.dat"}));
    }

    void directoryAtThePathStaysInTheWay()
    {
        const Handover handover;
        files::write(handover.path("velmora_cl_2.1.dat/inside"), "inside");
        const QStringList before = handover.list();
        QVERIFY(!handover.write("2.1", "Cg=="));
        QCOMPARE(handover.list(), before);
        QVERIFY(handover.write("2.1", ""));
        QCOMPARE(handover.list(), before);
    }

    void fileOfAnEarlierRunIsGoneWhenTheNewOneCannotBeOpened()
    {
        const Handover handover;
        files::write(handover.path("velmora_cl_2.1.dat"), "of an earlier run");
        bool result = true;
        {
            const NoDescriptorsLeft none;
            result = handover.write("2.1", "Cg==");
        }
        QVERIFY(!result);
        QVERIFY(handover.list().isEmpty());
    }

    void closedTemporaryDirectoryFailsOnlyForANewFile()
    {
        const Handover handover;
        const ScopedMode closed(handover.tempDir(), 0500);
        ENFORCE_PERMISSIONS();
        QVERIFY(!handover.write("2.1", "Cg=="));
        QVERIFY(handover.write("2.1", ""));
        QVERIFY(handover.list().isEmpty());
    }

    void fileThatCannotBeRemovedIsOverwritten()
    {
        const Handover handover;
        const QString path = handover.path("velmora_cl_2.1.dat");
        files::write(path, "of an earlier run");
        const ScopedMode closed(handover.tempDir(), 0500);
        ENFORCE_PERMISSIONS();
        QVERIFY(handover.write("2.1", "Cg=="));
        QCOMPARE(files::read(path), QByteArray("Cg=="));
    }

    void textGoesFromThePublisherToTheHost_data()
    {
        QTest::addColumn<QByteArray>("text");
        row("three lines", QByteArray("Version 2.1\n- Faster start-up\n- Fixed printing\n"));
        row("line feed alone", QByteArray("\n"));
        row("whitespace around", QByteArray(" \t\n text \n\n "));
        row("tags of the manifest", QByteArray("</changelog><file></Editor><version>3</version>"));
        row("beyond ASCII", QByteArray("Gr\xc3\xb6\xc3\x9f \xe2\x82\xac \xf0\x9d\x84\x9e"));
        row("zero byte", QByteArray("a\0b", 3));
    }

    // The publisher builds the version file, the client reads it as one character per byte, and the
    // host knows the version and the temporary directory.
    void textGoesFromThePublisherToTheHost()
    {
        QFETCH(QByteArray, text);
        const Handover handover;
        files::write(handover.outside("notes"), text);
        files::makeDirectory(handover.outside("tree"));
        Updater publisher("Editor", handover.outside("tree"), " 2.1 ", "", "", "");
        QVERIFY(publisher.buildVersionFile(nullptr, false, handover.outside("notes")));

        const QByteArray body = files::read(handover.outside("tree/index.txt"));
        Updater client("Editor", "", "2.0", "", "", "");
        ProgramData data;
        QVERIFY(manifest::read("Editor", QString::fromLatin1(body), data));
        QVERIFY(client.writeChangelogFile(data));

        const QByteArray payload = files::read(handover.path("velmora_cl_2.1.dat"));
        QCOMPARE(QByteArray::fromBase64(payload), text);
    }

    void hostFindsNoFileWithoutNotes()
    {
        const Handover handover;
        files::write(handover.path("velmora_cl_2.1.dat"), "of an earlier run");
        Updater updater("Editor", "", "", "", "", "");
        QString text;
        QVERIFY(manifest::write(record("2.1", ""), text));
        ProgramData data;
        QVERIFY(manifest::read("Editor", text, data));
        QVERIFY(updater.writeChangelogFile(data));
        QVERIFY(handover.list().isEmpty());
    }

private:
    static QString payloadOf(const QString& fileName)
    {
        return Updater("", "", "", "", "", "").changelogData(fileName);
    }

    /// Checks that the file of the row gives the payload of the row.
    static void payloadIsThatOfTheRow()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, payload);
        const TestDir dir;
        files::write(dir / "notes", file);
        QCOMPARE(payloadOf(dir / "notes"), payload);
    }

    /// What is in @p dir and below, except for @p before.
    static QStringList added(const QString& dir, const QStringList& before)
    {
        QStringList names = files::list(dir);
        for (const QString& name : before)
            names.removeOne(name);
        return names;
    }
};

UPDATER_TEST_MAIN(TestChangelog)
#include "tst_Changelog.moc"
