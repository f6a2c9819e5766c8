// The clone of an installation: what it shares with the installation, what an updater may have done
// to it, which modes it gets, what it takes over from the installation, and the exchange.

#include "host/guard/Clone.h"

#include "tests/support/Needs.h"
#include "tests/support/Release.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <functional>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

struct stat statusOf(const QString& path)
{
    struct stat status{};
    ::lstat(QFile::encodeName(path).constData(), &status);
    return status;
}

bool isSameFile(const QString& one, const QString& other)
{
    const struct stat a = statusOf(one);
    const struct stat b = statusOf(other);
    return a.st_ino != 0 && a.st_ino == b.st_ino && a.st_dev == b.st_dev;
}

void setLongAgo(const QString& path)
{
    const timespec times[] = {{1000000, 0}, {1000000, 0}};
    ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0);
}

/// Waits until the file system of @p dir gives files another time than now.
void waitForTheClock(const QString& dir)
{
    const auto timeOf = [&](const QString& name) {
        files::write(dir + '/' + name, "");
        return statusOf(dir + '/' + name).st_ctim.tv_nsec;
    };
    const auto before = timeOf("before");
    if (!QTest::qWaitFor([&] { return timeOf("after") != before; }))
        qFatal("the clock of the file system stands still");
}

ProgramData releaseOf(const Tree& tree)
{
    ProgramData data;
    data.name = "Editor";
    data.version = "2.0";
    for (auto file = tree.begin(); file != tree.end(); ++file)
        data.files.append(tree::entry(file.key(), file.value()));
    return data;
}

/// An installation with all sorts of entries, and a release of which some files are new.
class CloneScene
{
public:
    CloneScene()
    {
        release::lay(installed, directory);
        files::write(directory + "/log/today.log", "not listed");
        files::write(directory + "/.hidden/file", "hidden");
        files::makeDirectory(directory + "/empty");
        files::link("sub/same.txt", directory + "/link");
        files::link("/nowhere", directory + "/outward");
    }

    Clone& clone()
    {
        if (!m_clone) {
            m_clone = std::make_unique<Clone>(QFile::encodeName(directory), releaseOf(published));
            different = m_clone->findDifferences();
        }
        return *m_clone;
    }

    bool make() { return clone().make(QFile::encodeName(path), why); }

    /// Does in the clone what the updater would do.
    void update() const
    {
        for (const ProgramFile& file : different)
            files::write(path + '/' + file.name, published.value(file.name));
    }

    bool makeAndUpdate()
    {
        if (!make())
            return false;
        update();
        return true;
    }

    const TestDir dir;
    const QString top = QFileInfo(dir.path()).canonicalFilePath();
    const QString directory = top + "/Editor.app";
    const QString path = top + "/hidden/clone";
    Tree installed{{"sub/same.txt", "same"}, {"sub/old.txt", "old"}, {"gone.txt", "gone"}};
    Tree published{{"sub/same.txt", "same"}, {"sub/old.txt", "new"}, {"more/new.txt", "more"}};
    QVector<ProgramFile> different;
    QString why;

private:
    std::unique_ptr<Clone> m_clone;
};

bool never(const QByteArray& /*name*/)
{
    return false;
}

/// What a test does to a scene.
using Act = std::function<void(CloneScene&)>;

} // namespace

Q_DECLARE_METATYPE(Act)

class TestGuardClone : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ::umask(022); }

    void differencesAreWhatIsMissingOrDifferent()
    {
        CloneScene scene;
        scene.clone();
        QCOMPARE(tree::lines(scene.different), tree::lines({tree::entry("more/new.txt", "more"),
                                                            tree::entry("sub/old.txt", "new")}));
    }

    void cloneSharesAllButWhatIsReplaced()
    {
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        files::setMode(scene.directory + "/empty", 02775);
        files::setMode(scene.directory + "/.hidden", 0555);
        QVERIFY2(scene.make(), qPrintable(scene.why));
        QCOMPARE(files::list(scene.path),
                 QStringList({".hidden/", ".hidden/file", "empty/", "gone.txt", "link", "log/",
                              "log/today.log", "outward", "sub/", "sub/same.txt"}));
        for (const char* name : {"gone.txt", "log/today.log", "sub/same.txt", ".hidden/file"})
            QVERIFY2(isSameFile(scene.directory + '/' + name, scene.path + '/' + name), name);
        QCOMPARE(QFile::symLinkTarget(scene.path + "/outward"), QString("/nowhere"));
        QCOMPARE(files::mode(scene.path + "/empty") & 0777, 0775U);
        QCOMPARE(files::mode(scene.path + "/.hidden"), 0755U); // Until the end.
        files::setMode(scene.directory + "/.hidden", 0755);
    }

    void somethingThatCannotBeClonedIsRefused_data()
    {
        QTest::addColumn<Act>("act");
        QTest::addColumn<QString>("why");
        const auto add = [](const char* name, const Act& act, const char* why) {
            row(name, act, QString(why));
        };
        add(
            "FIFO", [](CloneScene& s) { tree::makeFifo(s.directory + "/sub/fifo"); },
            "sub/fifo: neither a file nor a directory nor a link");
        add(
            "socket", [](CloneScene& s) { tree::makeSocket(s.directory + "/sub/s"); },
            "sub/s: neither a file nor a directory nor a link");
        add(
            "set-uid file", [](CloneScene& s) { files::setMode(s.directory + "/gone.txt", 04755); },
            "gone.txt: a set-uid or set-gid file");
        add(
            "set-gid file", [](CloneScene& s) { files::setMode(s.directory + "/gone.txt", 02755); },
            "gone.txt: a set-uid or set-gid file");
    }

    void somethingThatCannotBeClonedIsRefused()
    {
        QFETCH(Act, act);
        QFETCH(QString, why);
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        act(scene);
        QVERIFY(!scene.make());
        QCOMPARE(scene.why, scene.directory + '/' + why);
        QVERIFY(!QFile::exists(scene.path));
    }

    void fileThatCannotBeLinkedIsCopied()
    {
        // A link across file systems fails, and is the simplest way to have every link fail.
        const QTemporaryDir elsewhere("/dev/shm/tst_guardclone-XXXXXX");
        CloneScene scene;
        if (!elsewhere.isValid() ||
            statusOf(elsewhere.path()).st_dev == statusOf(scene.directory).st_dev)
            QSKIP("/dev/shm is no other file system");
        const QString file = scene.directory + "/gone.txt";
        files::setMode(file, 0640);
        const bool hasAttributes =
            ::setxattr(QFile::encodeName(file).constData(), "user.note", "n", 1, 0) == 0;
        const QString path = elsewhere.path() + "/clone";
        QVERIFY2(scene.clone().make(QFile::encodeName(path), scene.why), qPrintable(scene.why));
        QCOMPARE(files::read(path + "/gone.txt"), QByteArray("gone"));
        QCOMPARE(files::mode(path + "/gone.txt"), 0640U);
        QCOMPARE(statusOf(path + "/gone.txt").st_mtim.tv_nsec, statusOf(file).st_mtim.tv_nsec);
        char value = '\0';
        const QByteArray copy = QFile::encodeName(path + "/gone.txt");
        // Older versions of tmpfs have none.
        if (hasAttributes && ::getxattr(copy.constData(), "user.note", &value, 1) == 1)
            QCOMPARE(value, 'n');
    }

    void cloneOfAFinishedUpdateIsWhole()
    {
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        QVERIFY(scene.makeAndUpdate());
        QVERIFY2(scene.clone().isWhole(scene.why), qPrintable(scene.why));
    }

    void anythingElseInTheCloneIsFound_data()
    {
        QTest::addColumn<Act>("act");
        QTest::addColumn<QString>("why");
        const auto add = [](const char* name, const Act& act, const char* why) {
            row(name, act, QString(why));
        };
        add(
            "file added", [](CloneScene& s) { files::write(s.path + "/evil", ""); },
            "evil was added");
        add(
            "directory added", [](CloneScene& s) { files::makeDirectory(s.path + "/sub/evil"); },
            "sub/evil was added");
        add(
            "link added", [](CloneScene& s) { files::link("sub", s.path + "/evil"); },
            "evil was added");
        add(
            "unlisted file removed", [](CloneScene& s) { QFile::remove(s.path + "/gone.txt"); },
            "gone.txt was changed");
        add(
            "unlisted file replaced",
            [](CloneScene& s) {
                QFile::remove(s.path + "/gone.txt");
                files::write(s.path + "/gone.txt", "gone");
            },
            "gone.txt was changed");
        add(
            "directory removed", [](CloneScene& s) { QDir().rmdir(s.path + "/empty"); },
            "empty was changed");
        add(
            "link changed",
            [](CloneScene& s) {
                QFile::remove(s.path + "/outward");
                files::link("/tmp", s.path + "/outward");
            },
            "outward was changed");
        add(
            "link became a directory",
            [](CloneScene& s) {
                QFile::remove(s.path + "/outward");
                files::makeDirectory(s.path + "/outward");
            },
            "outward was changed");
        add(
            "new file missing", [](CloneScene& s) { QFile::remove(s.path + "/more/new.txt"); },
            "more/new.txt is missing or damaged");
        add(
            "new file too long",
            [](CloneScene& s) { files::write(s.path + "/more/new.txt", "more!"); },
            "more/new.txt is missing or damaged");
        add(
            "new file damaged",
            [](CloneScene& s) { files::write(s.path + "/more/new.txt", "mere"); },
            "more/new.txt is missing or damaged");
        add(
            "new file is a link",
            [](CloneScene& s) {
                files::write(s.top + "/elsewhere", "more");
                QFile::remove(s.path + "/more/new.txt");
                files::link(s.top + "/elsewhere", s.path + "/more/new.txt");
            },
            "more/new.txt is not a file of its own");
        add(
            "new file has another link",
            [](CloneScene& s) {
                ::link(QFile::encodeName(s.path + "/more/new.txt").constData(),
                       QFile::encodeName(s.top + "/elsewhere").constData());
            },
            "more/new.txt is not a file of its own");
        add(
            "listed file damaged in place",
            [](CloneScene& s) { files::write(s.path + "/sub/same.txt", "sam!"); },
            "sub/same.txt is missing or damaged");
    }

    void anythingElseInTheCloneIsFound()
    {
        QFETCH(Act, act);
        QFETCH(QString, why);
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        QVERIFY(scene.makeAndUpdate());
        act(scene);
        QVERIFY(!scene.clone().isWhole(scene.why));
        QCOMPARE(scene.why, why);
    }

    /// A file that was found intact is not hashed again, unless it was touched since.
    void fileWrittenLongAgoIsCheckedAgainWhenItWasTouched_data()
    {
        QTest::addColumn<Act>("act");
        QTest::addColumn<bool>("isWhole");
        const auto add = [](const char* name, const Act& act, bool isWhole) {
            row(name, act, isWhole);
        };
        add("untouched", [](CloneScene&) {}, true);
        add(
            "written", [](CloneScene& s) { files::write(s.path + "/sub/same.txt", "sane"); },
            false);
        add(
            "written, and its time set back",
            [](CloneScene& s) {
                files::write(s.path + "/sub/same.txt", "sane");
                setLongAgo(s.path + "/sub/same.txt");
            },
            false);
        add(
            "replaced",
            [](CloneScene& s) {
                QFile::remove(s.path + "/sub/same.txt");
                files::write(s.path + "/sub/same.txt", "same");
            },
            false);
    }

    void fileWrittenLongAgoIsCheckedAgainWhenItWasTouched()
    {
        QFETCH(Act, act);
        QFETCH(bool, isWhole);
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        setLongAgo(scene.directory + "/sub/same.txt");
        QVERIFY(scene.makeAndUpdate());
        waitForTheClock(scene.top);
        act(scene);
        QCOMPARE(scene.clone().isWhole(scene.why), isWhole);
    }

    /// Damage between the comparison and the clone.
    void fileDamagedBeforeItIsLinkedIsFound()
    {
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        setLongAgo(scene.directory + "/sub/same.txt");
        scene.clone();
        waitForTheClock(scene.top);
        files::write(scene.directory + "/sub/same.txt", "sane");
        setLongAgo(scene.directory + "/sub/same.txt");
        QVERIFY(scene.makeAndUpdate());
        QVERIFY(!scene.clone().isWhole(scene.why));
        QCOMPARE(scene.why, QString("sub/same.txt is missing or damaged"));
    }

    void replacedFilesKeepTheirModes_data()
    {
        QTest::addColumn<unsigned>("before");
        QTest::addColumn<bool>("mustBeExecutable");
        QTest::addColumn<unsigned>("after");
        row("plain", 0644U, false, 0644U);
        row("private", 0600U, false, 0600U);
        row("executable", 0755U, false, 0755U);
        row("group may write", 0664U, false, 0664U);
        row("read-only", 0444U, false, 0444U);
        row("executable already", 0700U, true, 0700U);
        row("made executable", 0644U, true, 0755U);
        row("private, made executable", 0600U, true, 0700U);
    }

    void replacedFilesKeepTheirModes()
    {
        QFETCH(unsigned, before);
        QFETCH(bool, mustBeExecutable);
        QFETCH(unsigned, after);
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        files::setMode(scene.directory + "/sub/old.txt", before);
        QVERIFY(scene.makeAndUpdate());
        files::setMode(scene.path + "/sub/old.txt", 0600); // As after an umask of 077.
        files::setMode(scene.path + "/more/new.txt", 0600);
        QVERIFY2(
            scene.clone().setModes(
                [=](const QByteArray& name) { return name == "sub/old.txt" && mustBeExecutable; },
                scene.why),
            qPrintable(scene.why));
        QCOMPARE(files::mode(scene.path + "/sub/old.txt"), after);
        QCOMPARE(files::mode(scene.path + "/more/new.txt"), 0644U);
        QCOMPARE(files::mode(scene.directory + "/sub/old.txt"), before);
    }

    void newFileCanBeMadeExecutable()
    {
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        QVERIFY(scene.makeAndUpdate());
        QVERIFY(scene.clone().setModes(
            [](const QByteArray& name) { return name == "more/new.txt"; }, scene.why));
        QCOMPARE(files::mode(scene.path + "/more/new.txt"), 0755U);
        QCOMPARE(files::mode(scene.path + "/sub/old.txt"), 0644U);
    }

    /// It would change in the installation.
    void sharedFileIsCopiedBeforeItIsMadeExecutable()
    {
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        QVERIFY(scene.makeAndUpdate());
        QVERIFY2(scene.clone().setModes(
                     [](const QByteArray& name) { return name == "sub/same.txt"; }, scene.why),
                 qPrintable(scene.why));
        QCOMPARE(files::mode(scene.path + "/sub/same.txt"), 0755U);
        QCOMPARE(files::read(scene.path + "/sub/same.txt"), QByteArray("same"));
        QCOMPARE(files::mode(scene.directory + "/sub/same.txt"), 0644U);
        QVERIFY(!isSameFile(scene.path + "/sub/same.txt", scene.directory + "/sub/same.txt"));
    }

    void obsoleteFilesAreRemovedIfTheyAreAsListed_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("listed");
        QTest::addColumn<bool>("isRemoved");
        row("as listed", "gone.txt", QByteArray("gone"), true);
        row("other contents", "gone.txt", QByteArray("gane"), false);
        row("other size", "gone.txt", QByteArray("gone!"), false);
        row("still in the release", "sub/same.txt", QByteArray("same"), false);
        row("replaced", "sub/old.txt", QByteArray("old"), false);
        row("not there", "never", QByteArray("x"), false);
        row("a link to a file as listed", "link", QByteArray("same"), false);
    }

    void obsoleteFilesAreRemovedIfTheyAreAsListed()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, listed);
        QFETCH(bool, isRemoved);
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        QVERIFY(scene.makeAndUpdate());
        const QStringList before = files::list(scene.path);
        QVERIFY(scene.clone().removeObsolete(releaseOf({{name, listed}}), scene.why));
        QStringList expected = before;
        if (isRemoved)
            expected.removeOne(name);
        QCOMPARE(files::list(scene.path), expected);
        QVERIFY(scene.clone().catchUp(scene.why));
        QCOMPARE(files::list(scene.path), expected);
    }

    void changesOfOtherProgramsAreTakenOver()
    {
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        QVERIFY(scene.makeAndUpdate());
        const QString& from = scene.directory;
        files::write(from + "/log/today.log", "written in place");
        files::write(from + "/log/new/deep.log", "new");
        QFile::remove(from + "/gone.txt");
        QDir().rmdir(from + "/empty");
        files::write(from + "/empty", "now a file");
        QFile::remove(from + "/.hidden/file");
        QFile::rename(from + "/log/today.log", from + "/log/yesterday.log");
        QFile::remove(from + "/outward");
        files::link("/elsewhere", from + "/outward");
        files::setMode(from + "/log", 0700);
        files::write(from + "/more/unlisted.txt", "in a directory of the release");

        QVERIFY2(scene.clone().catchUp(scene.why), qPrintable(scene.why));
        QStringList expected = files::list(from);
        expected.append("more/new.txt");
        expected.sort();
        QCOMPARE(files::list(scene.path), expected);
        QCOMPARE(files::read(scene.path + "/log/yesterday.log"), QByteArray("written in place"));
        QCOMPARE(files::read(scene.path + "/log/new/deep.log"), QByteArray("new"));
        QCOMPARE(files::read(scene.path + "/empty"), QByteArray("now a file"));
        QCOMPARE(QFile::symLinkTarget(scene.path + "/outward"), QString("/elsewhere"));
        QVERIFY2(scene.clone().exchange(scene.why), qPrintable(scene.why));
        QCOMPARE(files::mode(scene.directory + "/log"), 0700U);
    }

    void changeOfAListedFileIsFound_data()
    {
        QTest::addColumn<Act>("act");
        const auto add = [](const char* name, const Act& act) {
            row(name, act);
        };
        add("written in place",
            [](CloneScene& s) { files::write(s.directory + "/sub/same.txt", "sane"); });
        add("replaced by the same", [](CloneScene& s) {
            QFile::remove(s.directory + "/sub/same.txt");
            files::write(s.directory + "/sub/same.txt", "same");
        });
        add("removed", [](CloneScene& s) { QFile::remove(s.directory + "/sub/same.txt"); });
        add("one that is updated, changed",
            [](CloneScene& s) { files::write(s.directory + "/sub/old.txt", "new"); });
        add("one that is new, made",
            [](CloneScene& s) { files::write(s.directory + "/more/new.txt", "more"); });
        add("mode", [](CloneScene& s) { files::setMode(s.directory + "/sub/old.txt", 0600); });
    }

    void changeOfAListedFileIsFound()
    {
        QFETCH(Act, act);
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        QVERIFY(scene.makeAndUpdate());
        act(scene);
        QVERIFY(!scene.clone().catchUp(scene.why));
        QVERIFY2(scene.why.endsWith("was changed in the installation during the update"),
                 qPrintable(scene.why));
    }

    void exchangeMakesTheCloneTheInstallation()
    {
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        files::setMode(scene.directory + "/log", 0555);
        files::setMode(scene.directory + "/empty", 02775);
        QVERIFY(scene.makeAndUpdate());
        QVERIFY(scene.clone().setModes(never, scene.why));
        QVERIFY(scene.clone().catchUp(scene.why));
        QVERIFY2(scene.clone().exchange(scene.why), qPrintable(scene.why));
        QCOMPARE(files::read(scene.directory + "/sub/old.txt"), QByteArray("new"));
        QCOMPARE(files::read(scene.directory + "/more/new.txt"), QByteArray("more"));
        QCOMPARE(files::read(scene.path + "/sub/old.txt"), QByteArray("old"));
        QVERIFY(!QFile::exists(scene.path + "/more"));
        QCOMPARE(files::mode(scene.directory + "/log"), 0555U);
        QCOMPARE(files::mode(scene.directory + "/empty"), 02775U);
        QCOMPARE(files::mode(scene.directory + "/more"), 0755U);
        files::setMode(scene.directory + "/log", 0755);
        files::setMode(scene.path + "/log", 0755);
    }

    /// A listed name may go through a link within the installation.
    void linkedDirectoryOfTheInstallationIsUpdated()
    {
        CloneScene scene;
        files::makeDirectory(scene.top + "/hidden");
        files::link("sub", scene.directory + "/current");
        scene.published = {{"current/old.txt", "new"}, {"current/deep/new.txt", "deep"}};
        QVERIFY2(scene.makeAndUpdate(), qPrintable(scene.why));
        QVERIFY2(scene.clone().isWhole(scene.why), qPrintable(scene.why));
        QCOMPARE(files::read(scene.path + "/sub/old.txt"), QByteArray("new"));
        QCOMPARE(files::read(scene.directory + "/sub/old.txt"), QByteArray("old"));
        QVERIFY(scene.clone().catchUp(scene.why));
    }
};

UPDATER_TEST_MAIN(TestGuardClone)
#include "tst_guardclone.moc"
