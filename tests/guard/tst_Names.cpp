// Which names a published release may have.

#include "host/guard/Names.h"

#include "manifest/Paths.h"

#include "tests/support/EditorRelease.h"
#include "tests/support/Files.h"
#include "tests/support/Needs.h"
#include "tests/support/Row.h"
#include "tests/support/Sample.h"
#include "tests/support/TestMain.h"

#include <QRandomGenerator>

#include <unistd.h>

namespace {

QVector<ProgramFile> entriesNamed(const QStringList& names)
{
    QVector<ProgramFile> files;
    for (const QString& name : names)
        files.append(tree::entry(name, ""));
    return files;
}

QString refusalOf(const QStringList& names, const QString& directory = "/nonexistent")
{
    return names::refusal(editorRelease("2.0", entriesNamed(names)), directory);
}

/// Links, as "link -> target".
void makeLinks(const QString& top, const QStringList& links)
{
    for (const QString& link : links) {
        const QString path = top + '/' + link.section(" -> ", 0, 0);
        files::makeDirectory(QFileInfo(path).path());
        files::link(link.section(" -> ", 1), path);
    }
}

} // namespace

class TestNames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void releasesThatMayBeInstalled_data()
    {
        QTest::addColumn<QStringList>("names");
        row("no files", QStringList());
        row("one file", QStringList{"index.html"});
        row("files in directories",
            QStringList{"Contents/MacOS/Editor", "Contents/Info.plist", "Contents/MacOS/updater"});
        row("same name in two directories", QStringList{"a/x", "b/x", "x"});
        row("letter case", QStringList{"a", "A"});
        row("name that begins like another one",
            QStringList{"a", "a.txt", "a-b/c", "ab/c", "a b/c"});
        row("name that begins like a directory", QStringList{"a/b", "a.b", "a-b", "a!"});
        row("dots", QStringList{"...", ".hidden", "a..", "..a", "a/..b/c", "a/.../b", "a/b."});
        row("spaces", QStringList{" ", "a /b", " a/b"});
        row("odd characters",
            QStringList{"a:b", "C:/x", "a%2e%2e/b", "a#b", "a?b", "~/x", "-rf", "$x"});
        row("control characters", QStringList{"a\nb", "\x1b[2J"});
        row("Latin-1", QStringList{QString(QChar(0xe4)), QString(QChar(0xa0))});
        row("backslashes", QStringList{"a\\b", "a\\c", "d\\e/f"});
        row("longest component", QStringList{QString(255, 'a') + '/' + QString(255, 'b')});
        row("longest path", QStringList{QString("a/").repeated(1900) + 'b'});
    }

    void releasesThatMayBeInstalled()
    {
        QFETCH(QStringList, names);
        QCOMPARE(refusalOf(names), QString());
        const TestDir dir;
        QCOMPARE(refusalOf(names, dir.path()), QString());
    }

    void namesThatAreRefused_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("why");
        row("empty", "", "is empty");
        row("absolute", "/etc/passwd", "is absolute");
        row("absolute, backslash", "\\etc", "is absolute");
        row("separator alone", "/", "is absolute");
        row("two separators", "//host/share", "is absolute");
        row("parent", "..", "leads out of the installation");
        row("in the parent", "../evil.txt", "leads out of the installation");
        row("in the parent, backslash", "..\\evil.txt", "leads out of the installation");
        row("parent inside", "a/../b", "has the component \"..\"");
        row("parent inside, backslashes", "a\\..\\b", "has the component \"..\"");
        row("parent inside, mixed", "a/b\\../c", "has the component \"..\"");
        row("out on the way", "a/../../b", "has the component \"..\"");
        row("parent at the end", "a/..", "has the component \"..\"");
        row("parent at the end, backslash", "a\\..", "has the component \"..\"");
        row("directory itself", ".", "has the component \".\"");
        row("directory itself first", "./a", "has the component \".\"");
        row("directory itself inside", "a/./b", "has the component \".\"");
        row("directory itself inside, backslashes", "a\\.\\b", "has the component \".\"");
        row("directory itself at the end", "a/.", "has the component \".\"");
        row("separator at the end", "a/", "has an empty component");
        row("backslash at the end", "a\\", "has an empty component");
        row("two slashes", "a//b", "has an empty component");
        row("slash and backslash", "a/\\b", "has an empty component");
        row("component too long", 'a' + QString(255, 'b'), "is too long");
        row("component too long in UTF-8", QString(128, QChar(0xe4)), "is too long");
        row("directory too long", QString(256, 'a') + "/b", "is too long");
        row("path too long", QString("a/").repeated(2048) + 'b', "is too long");
    }

    void namesThatAreRefused()
    {
        QFETCH(QString, name);
        QFETCH(QString, why);
        const QString shown = name.size() > 200 ? name.left(200) + "..." : name;
        const QString expected = "the file name \"" + shown + "\" " + why;
        QCOMPARE(refusalOf({name}), expected);
        QCOMPARE(refusalOf({"a", "b/c", name, "z"}), expected);
    }

    void treesThatAreRefused_data()
    {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QString>("why");
        const QString twice = "is listed twice";
        const QString directory = "is also the directory of another file";
        row("twice", QStringList{"a", "a"}, "\"a\" " + twice);
        row("twice, far from each other", QStringList{"a/b", "a/c", "a.c", "b", "a/b"},
            "\"a/b\" " + twice);
        row("twice, another separator", QStringList{"a/b", "a\\b"}, "\"a/b\" " + twice);
        row("directory first", QStringList{"a", "a/b"}, "\"a\" " + directory);
        row("directory last", QStringList{"a/b", "a"}, "\"a\" " + directory);
        row("directory, backslash", QStringList{"a\\b", "a"}, "\"a\" " + directory);
        row("directory of a directory", QStringList{"a/b/c/d", "a/b"}, "\"a/b\" " + directory);
        row("directory, names that sort between", QStringList{"a", "a ", "a!b", "a.c", "a-", "a/x"},
            "\"a\" " + directory);
    }

    void treesThatAreRefused()
    {
        QFETCH(QStringList, names);
        QFETCH(QString, why);
        QCOMPARE(refusalOf(names), "the file name " + why);
    }

    void nameAndVersionMustNotHaveSeparators_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("allowed");
        row("plain", "2.0", true);
        row("spaces and dots", " .. 2", true);
        row("slash", "2/0", false);
        row("backslash", "2\\0", false);
        row("out", "/../../home", false);
        row("slash at the end", "2/", false);
    }

    void nameAndVersionMustNotHaveSeparators()
    {
        QFETCH(QString, text);
        QFETCH(bool, allowed);
        ProgramData data = editorRelease(text);
        QCOMPARE(names::refusal(data, "/nonexistent"),
                 allowed ? QString() : "the version \"" + text + "\" has a separator");
        data = editorRelease("2.0");
        data.name = text;
        QCOMPARE(names::refusal(data, "/nonexistent"),
                 allowed ? QString() : "the program name \"" + text + "\" has a separator");
    }

    void namesInTheReasonAreEscaped()
    {
        QCOMPARE(refusalOf({"../\x1b[2J\n"}),
                 QString("the file name \"../\\x1b[2J\\x0a\" leads out of the installation"));
        QCOMPARE(refusalOf({"a\n", "a\n"}), QString("the file name \"a\\x0a\" is listed twice"));
        QCOMPARE(names::refusal(editorRelease("/\n"), "/nonexistent"),
                 QString("the version \"/\\x0a\" has a separator"));
        // "%1" is no placeholder.
        QCOMPARE(refusalOf({"/%1%2"}), QString("the file name \"/%1%2\" is absolute"));
    }

    void linksInTheInstallation_data()
    {
        QTest::addColumn<QStringList>("links");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("why");
        const QString out = "leads out of the installation through a link";
        const QString absolute = "leads through a link to an absolute path";
        const QString many = "leads through too many links";

        row("none", QStringList(), "a/b/c", "");
        row("to a directory beside it", QStringList{"l -> real"}, "l/f", "");
        row("two components", QStringList{"l -> real/deep"}, "l/f", "");
        row("with a separator at its end", QStringList{"l -> real/"}, "l/f", "");
        row("to its own directory", QStringList{"l -> ."}, "l/l/l/f", "");
        row("to a parent that is inside", QStringList{"real/deep/l -> ../.."}, "real/deep/l/f", "");
        row("up and down again", QStringList{"real/l -> ../other"}, "real/l/f", "");
        row("below a link", QStringList{"l -> real", "real/m -> deep"}, "l/m/f", "");
        row("link to a link", QStringList{"l -> m", "m -> n", "n -> real"}, "l/f", "");
        row("to what is not there", QStringList{"l -> none"}, "l/f", "");
        row("as a framework has them",
            QStringList{"F/Versions/Current -> A", "F/Resources -> Versions/Current/Resources"},
            "F/Resources/Info.plist", "");
        row("name of the link itself, inside", QStringList{"l -> real"}, "l", "");
        row("name of the link itself, out", QStringList{"l -> ../outside"}, "l", "");
        row("name of the link itself, absolute", QStringList{"real/l -> /etc"}, "real/l", "");
        row("another link than that of the name", QStringList{"l -> /etc"}, "real/l2/f", "");

        row("absolute", QStringList{"l -> /etc"}, "l/f", absolute);
        row("absolute, into the installation", QStringList{"l -> %1/real"}, "l/f", absolute);
        row("absolute, not the first component", QStringList{"real/l -> /"}, "real/l/a/b/f",
            absolute);
        row("absolute behind a link", QStringList{"l -> m", "m -> /etc"}, "l/f", absolute);
        row("absolute below a link", QStringList{"l -> real", "real/m -> /etc"}, "l/m/f", absolute);
        row("absolute, to what is not there", QStringList{"l -> /none/x"}, "l/f", absolute);
        row("absolute inside a target", QStringList{"l -> m/x", "m -> /etc"}, "l/f", absolute);

        row("out", QStringList{"l -> .."}, "l/f", out);
        row("out, to a directory beside", QStringList{"l -> ../outside"}, "l/f", out);
        row("out and in again", QStringList{"l -> ../inside/real"}, "l/f", out);
        row("out from below", QStringList{"real/l -> ../../outside"}, "real/l/f", out);
        row("out by small steps", QStringList{"l -> real/../.././outside"}, "l/f", out);
        row("out, to what is not there", QStringList{"l -> ../none"}, "l/f", out);
        row("out behind a link", QStringList{"l -> m", "m -> ../outside"}, "l/f", out);
        row("out in a link's target", QStringList{"l -> m/..", "m -> ."}, "l/f", out);
        row("target that goes up from where a link leads",
            QStringList{"real/deep/l -> m/../..", "real/deep/m -> ../../other"}, "real/deep/l/f",
            out);
        row("target that goes up from where a link leads, inside",
            QStringList{"l -> m/..", "m -> real/deep"}, "l/f", "");
        row("target that goes up from what is not there", QStringList{"l -> none/../../outside"},
            "l/f", out);
        row("target that goes up from what is not there, inside", QStringList{"l -> none/../real"},
            "l/f", "");
        row("below a directory that is not there, then up to a link",
            QStringList{"l -> none/..", "m -> ../outside"}, "l/m/f", out);

        row("to itself", QStringList{"l -> l"}, "l/f", many);
        row("in a circle", QStringList{"l -> m", "m -> l"}, "l/f", many);
        row("in a circle through directories", QStringList{"l -> real/m", "real/m -> ../l"}, "l/f",
            many);
        row("that grows", QStringList{"l -> l/l"}, "l/f", many);

        // To the system a backslash is a part of the name.
        row("link with a backslash in its name", QStringList{"a\\l -> ../outside"}, "a\\l/f", out);
        row("file behind a backslash, link before it", QStringList{"l -> ../outside"}, "l\\f", out);
        row("link with a backslash as the file's own name", QStringList{"a\\l -> ../outside"},
            "a\\l", "");
        row("target with a backslash", QStringList{"l -> ..\\outside"}, "l/f", "");
        row("name outside ASCII", QStringList{QString::fromUtf8("\u00e4 -> ../outside")},
            QString::fromUtf8("\u00e4/f"), out);
    }

    void linksInTheInstallation()
    {
        QFETCH(QStringList, links);
        QFETCH(QString, name);
        QFETCH(QString, why);
        const TestDir dir;
        const QString top = dir / "inside";
        files::makeDirectory(top + "/real/deep");
        files::makeDirectory(top + "/other");
        files::makeDirectory(dir / "outside");
        makeLinks(top, links.replaceInStrings("%1", top));
        if (!why.isEmpty())
            why.prepend("the file name \"" + name + "\" ");

        QCOMPARE(refusalOf({name}, top), why);
        QCOMPARE(refusalOf({name}, top + '/'), why);
        // After names of the same and of other directories.
        const QString before = name.left(paths::lastSeparator(name) + 1) + "e";
        QCOMPARE(refusalOf({"b", "real/x", "other/deep/x", name}, top), why);
        QCOMPARE(refusalOf({before, name}, top), QString(why).replace(name, before));
    }

    void fortyLinksAreFollowed_data()
    {
        QTest::addColumn<int>("links");
        QTest::addColumn<bool>("allowed");
        row("40", 40, true);
        row("41", 41, false);
    }

    void fortyLinksAreFollowed()
    {
        QFETCH(int, links);
        QFETCH(bool, allowed);
        const TestDir dir;
        files::makeDirectory(dir / "l0");
        for (int i = 1; i <= links; ++i)
            files::link(QString("l%1").arg(i - 1), dir / QString("l%1").arg(i));
        QCOMPARE(refusalOf({QString("l%1/f").arg(links)}, dir.path()).isEmpty(), allowed);

        // The same as components of one name.
        files::link(".", dir / "dot");
        const QString name = QString("dot/").repeated(links) + 'f';
        QCOMPARE(refusalOf({name}, dir.path()).isEmpty(), allowed);
        QCOMPARE(refusalOf({"dot/dot/e", "dot/" + QString("dot/").repeated(links - 2) + 'e', name},
                           dir.path())
                     .isEmpty(),
                 allowed);
    }

    /// Their names are no text.
    void linksAreReadAsBytes()
    {
        const TestDir dir;
        const QByteArray top = QFile::encodeName(dir.path() + '/');
        SKIP_UNLESS(::symlink("..", top + "\xff") == 0, "the file system takes only text");
        QCOMPARE(::symlink("\xff/outside", top + "l"), 0);
        const QString why = refusalOf({"l/f"}, dir.path());
        ::unlink(top + "\xff"); // QTemporaryDir cannot.
        QCOMPARE(why,
                 QString("the file name \"l/f\" leads out of the installation through a link"));
    }

    void installationMayItselfBeALink()
    {
        const TestDir dir;
        files::makeDirectory(dir / "real/a");
        files::link(dir / "real", dir / "inside");
        QCOMPARE(refusalOf({"a/f", "f"}, dir / "inside"), QString());
    }

    void filesWhereDirectoriesShouldBeAreNoLinks()
    {
        const TestDir dir;
        files::write(dir / "a", "");
        QCOMPARE(refusalOf({"a/b/f"}, dir.path()), QString());
    }

    void directoryThatCannotBeSearchedIsRefused()
    {
        ENFORCE_PERMISSIONS();
        const TestDir dir;
        files::makeDirectory(dir / "a/b");
        files::setMode(dir / "a", 0);
        const QString why = refusalOf({"a/b/f"}, dir.path());
        files::setMode(dir / "a", 0755);
        QCOMPARE(why, QString("the file name \"a/b/f\" cannot be looked up: Permission denied"));
    }

    /// Whatever links there are, files that are made as the updater makes them stay inside. The
    /// links and the names are drawn at random.
    void whatIsAllowedStaysInside()
    {
        QRandomGenerator random(4711);
        const int rounds = everyRowIsWanted() ? 10000 : 1000;
        int allowed = 0;
        int refused = 0;
        for (int round = 0; round < rounds; ++round) {
            const TestDir dir;
            const QString top = dir / "o/inside";
            files::makeDirectory(top + "/a/b");
            files::makeDirectory(dir / "o/outside/a/b");
            const QStringList links = randomLinks(random);
            makeLinks(top, links);
            const QStringList names = randomNames(random);
            const QStringList before = listedBeside(top);
            if (!refusalOf(names, top).isEmpty()) {
                ++refused;
                continue;
            }
            ++allowed;
            for (const QString& name : names)
                putInto(top, name);
            if (listedBeside(top) != before)
                QFAIL(qPrintable(links.join(", ") + "; " + names.join(", ")));
        }
        QVERIFY2(allowed > rounds / 10 && refused > rounds / 10,
                 qPrintable(QString("%1 of %2 allowed").arg(allowed).arg(rounds)));
    }

    void manyNames_data()
    {
        QTest::addColumn<QString>("pattern"); // %1: a number, %2: another one.
        row("one directory", "Contents/Resources/some/directories/deep/file-%1.dat");
        row("many directories", "Contents/Resources/%2/sub/directory/file-%1.dat");
        row("a directory for each", "Contents/Resources/%1/file.dat");
        row("backslashes", "Contents\\Resources\\%2\\file-%1.dat");
    }

    /// In quadratic time these would take minutes, and ctest would end this program.
    void manyNames()
    {
        QFETCH(QString, pattern);
        constexpr int count = 100000;
        const TestDir dir;
        files::makeDirectory(dir / "Contents/Resources/some/directories/deep");
        for (int i = 0; i < 100; ++i)
            files::makeDirectory(dir / QString("Contents/Resources/%1/sub/directory").arg(i));
        QStringList names;
        for (int i = 0; i < count; ++i)
            names.append(QString(pattern)
                             .replace("%1", QString::number(i))
                             .replace("%2", QString::number(i % 100)));

        QCOMPARE(refusalOf(names, dir.path()), QString());
    }

    /// Version files can be very long, and so can a name.
    void veryLongName()
    {
        constexpr int count = 20000000;
        QCOMPARE(refusalOf({QString("a/").repeated(count)}),
                 "the file name \"" + QString("a/").repeated(100) + "...\" is too long");
    }

private:
    static QString randomPath(QRandomGenerator& random, const QStringList& components, int most)
    {
        QStringList path;
        const int count = random.bounded(1, most + 1);
        for (int i = 0; i < count; ++i)
            path.append(components.at(random.bounded(static_cast<int>(components.size()))));
        return path.join('/');
    }

    /// Below directories that exist, to anything near them.
    static QStringList randomLinks(QRandomGenerator& random)
    {
        static const QStringList places{"l", "m", "a/l", "a/m", "a/b/l", "a\\m"};
        static const QStringList targets{"..", "..", "a", "b", "l", "m", "none", ".", "outside"};
        QStringList links;
        for (const QString& place : places)
            if (random.bounded(2) == 0)
                links.append(place + " -> " + randomPath(random, targets, 4));
        return links;
    }

    static QStringList randomNames(QRandomGenerator& random)
    {
        static const QStringList components{"a", "b", "l", "m", "none", "a\\m", "l\\m"};
        QStringList names;
        const int count = random.bounded(1, 5);
        for (int i = 0; i < count; ++i)
            names.append(randomPath(random, components, 4) + QString("/f%1").arg(i));
        return names;
    }

    /// Makes the file @p name below @p top like the updater, with the directory before its last
    /// separator of either kind.
    static void putInto(const QString& top, const QString& name)
    {
        const QString path = top + '/' + name;
        QDir().mkpath(path.left(qMax(path.lastIndexOf('/'), path.lastIndexOf('\\'))));
        QFile file(path);
        if (file.open(QIODevice::WriteOnly))
            file.write("new");
    }

    /// What is two levels above @p top, but nothing in it.
    static QStringList listedBeside(const QString& top)
    {
        QStringList beside;
        const QStringList all = files::list(QDir::cleanPath(top + "/../.."));
        for (const QString& path : all)
            if (!path.startsWith("o/inside/"))
                beside.append(path);
        return beside;
    }
};

UPDATER_TEST_MAIN(TestNames)
#include "tst_Names.moc"
