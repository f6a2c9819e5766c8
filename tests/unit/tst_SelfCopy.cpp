// Running from the temporary directory, and the copy of the executable that is made there.

#include "updater/Updater.h"

#include "tests/support/Command.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"

#include <QFileInfo>

#include <cstdio>
#include <memory>

namespace {

/// With this argument the executable prints whether it runs from the temporary directory.
const char* const whereOption = "--where";

std::unique_ptr<Updater> makeUpdater(const QString& programName)
{
    return std::make_unique<Updater>(programName, "/opt/editor", "1.0", QString(), QString(),
                                     QString());
}

int sayWhere(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    std::puts(makeUpdater("Editor")->runningFromTemp() ? "inside" : "outside");
    return 0;
}

/// Starts @p executable, a copy of this one, with the temporary directory @p tmpDir.
/// @return What it prints.
QByteArray answerOf(const QString& executable, const QString& tmpDir)
{
    return outputOf({executable, whereOption}, {{"TMPDIR", tmpDir}}).trimmed();
}

QByteArray ownExecutable()
{
    return files::read(QCoreApplication::applicationFilePath());
}

} // namespace

class TestSelfCopy : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void executableKnowsThatItRunsFromTheTemporaryDirectory_data()
    {
        QTest::addColumn<QString>("appDir");
        QTest::addColumn<QString>("tmpDir");
        QTest::addColumn<QByteArray>("answer");
        const auto add = [](const char* name, const char* appDir, const char* tmpDir,
                            const char* answer) {
            row(name, appDir, tmpDir, QByteArray(answer));
        };
        add("bundle below", "tmp/EditorUpdate.app/Contents/MacOS", "@top/tmp", "inside");
        add("bundle below, slash at the end", "tmp/EditorUpdate.app/Contents/MacOS", "@top/tmp/",
            "inside");
        add("bundle elsewhere", "tmp/EditorUpdate.app/Contents/MacOS", "@top/tmp2", "outside");
        add("directory itself", "tmp", "@top/tmp", "inside");
        add("directory itself, slash at the end", "tmp", "@top/tmp/", "inside");
        add("sibling that begins with the same letters", "tmpfiles", "@top/tmp", "outside");
        add("below such a sibling", "tmpfiles/app", "@top/tmp", "outside");
        add("above", "tmp", "@top/tmp/deeper", "outside");
        add("elsewhere, same length", "app", "@top/tmp", "outside");
        add("directory in another case", "TMP/x", "@top/tmp", "inside");
        add("equal but for the case", "tmp", "@top/TMP", "inside");
        add("sibling in another case", "TMPfiles/x", "@top/tmp", "outside");
        add("backslash in the name of the directory", "tmp\\x", "@top/tmp", "inside");
        add("backslash at the end", "tmp/x", "@top/tmp\\", "inside");
        add("backslashes inside", "a/b/x", "@top/a\\b", "inside");
        add("root", "tmp", "/", "outside");
    }

    void executableKnowsThatItRunsFromTheTemporaryDirectory()
    {
        QFETCH(QString, appDir);
        QFETCH(QString, tmpDir);
        QFETCH(QByteArray, answer);
        const TestDir top;
        tmpDir.replace("@top", top.path());
        files::makeDirectory(tmpDir);
        const QString executable = top / appDir + "/Editor";
        files::writeExecutable(executable, ownExecutable());
        QCOMPARE(answerOf(executable, tmpDir), answer);
    }

    void temporaryDirectoryMayBeALink()
    {
        const TestDir top;
        files::link(QCoreApplication::applicationDirPath(), top / "link");
        const ScopedTmpDir tmp(top / "link");
        QVERIFY(makeUpdater("Editor")->runningFromTemp());
    }

    void nothingRunsFromAMissingTemporaryDirectory()
    {
        const ScopedTmpDir tmp(QCoreApplication::applicationDirPath() + "/missing");
        QVERIFY(!makeUpdater("Editor")->runningFromTemp());
    }

    void directoryOfTheExecutableCountsAndNotTheExecutable()
    {
        const ScopedTmpDir tmp(QCoreApplication::applicationFilePath());
        QVERIFY(!makeUpdater("Editor")->runningFromTemp());
    }

    void copyIsNamedAfterTheProgram_data()
    {
        QTest::addColumn<QString>("programName");
        QTest::addColumn<QString>("tmpDir");
        QTest::addColumn<QString>("copy");
        row("plain name", "Editor", "tmp", "tmp/EditorUpdater");
        row("spaces around the name", " My Editor ", "tmp", "tmp/ My Editor Updater");
        row("empty name", "", "tmp", "tmp/Updater");
        row("placeholder", "Ed%1", "tmp", "tmp/Ed%1Updater");
        row("directory in the name", "sub/Editor", "tmp", "tmp/sub/EditorUpdater");
        row("separator at the end of the name", "sub/", "tmp", "tmp/sub/Updater");
        row("slash at the directory", "Editor", "tmp/", "tmp/EditorUpdater");
        // Outside Windows the backslash is a character of the name.
        row("backslash at the directory", "Editor", "tmp\\", "tmp\\EditorUpdater");
    }

    void copyIsNamedAfterTheProgram()
    {
        QFETCH(QString, programName);
        QFETCH(QString, tmpDir);
        QFETCH(QString, copy);
        const TestDir top;
        files::makeDirectory(top / "tmp/sub");
        files::makeDirectory(top / tmpDir);
        const ScopedTmpDir tmp(top / tmpDir);
        const auto updater = makeUpdater(programName);
        QString target = "earlier text";
        QVERIFY(!updater->selfCopyToTemp(target));
        QCOMPARE(target, QFileInfo(top.path()).canonicalFilePath() + '/' + copy);
        QVERIFY(QFile::exists(top / copy));
        QCOMPARE(UpdaterProbe(*updater).tempCopies, QStringList{target});
        QCOMPARE(UpdaterProbe(*updater).programName, programName);
    }

    // Qt then has no temporary directory, and the path is the separator and the name.
    void copyIsMadeInTheRootWithoutATemporaryDirectory()
    {
        const TestDir top;
        const ScopedTmpDir tmp(top / "missing");
        const auto updater = makeUpdater(top.path().mid(1) + "/Editor");
        QString target;
        QVERIFY(!updater->selfCopyToTemp(target));
        QCOMPARE(target, top / "EditorUpdater");
        QVERIFY(QFile::exists(target));
    }

    void copyIsTheExecutableAlone()
    {
        const TestDir top;
        const ScopedTmpDir tmp(top.path());
        QString target;
        QVERIFY(!makeUpdater("Editor")->selfCopyToTemp(target));
        QCOMPARE(files::list(top.path()), QStringList{"EditorUpdater"});
        QVERIFY(files::read(target) == ownExecutable());
        QCOMPARE(files::mode(target), files::mode(QCoreApplication::applicationFilePath()));
    }

    void copyRunsFromTheTemporaryDirectory()
    {
        const TestDir top;
        const ScopedTmpDir tmp(top.path());
        QString target;
        QVERIFY(!makeUpdater("Editor")->selfCopyToTemp(target));
        QCOMPARE(answerOf(target, top.path()), QByteArray("inside"));
    }

    void everyCopyIsRecorded()
    {
        const TestDir top;
        const ScopedTmpDir tmp(top.path());
        const auto updater = makeUpdater("Editor");
        QString first;
        QString second;
        QVERIFY(!updater->selfCopyToTemp(first));
        files::write(first, "damaged");
        QVERIFY(!updater->selfCopyToTemp(second));
        QCOMPARE(second, first);
        QCOMPARE(UpdaterProbe(*updater).tempCopies, (QStringList{first, first}));
        QVERIFY(files::read(second) == ownExecutable());

        UpdaterProbe(*updater).programName = "Viewer";
        QVERIFY(!updater->selfCopyToTemp(second));
        QCOMPARE(UpdaterProbe(*updater).tempCopies, (QStringList{first, first, second}));
        QCOMPARE(files::list(top.path()), (QStringList{"EditorUpdater", "ViewerUpdater"}));
    }

    void copyReplacesWhatIsThere_data()
    {
        QTest::addColumn<bool>("link");
        row("older file", false);
        row("link to a file", true);
    }

    void copyReplacesWhatIsThere()
    {
        QFETCH(bool, link);
        const TestDir top;
        const ScopedTmpDir tmp(top.path());
        files::write(top / "other", "other");
        if (link)
            files::link("other", top / "EditorUpdater");
        else
            files::write(top / "EditorUpdater", "old");

        QString target;
        const auto updater = makeUpdater("Editor");
        QVERIFY(!updater->selfCopyToTemp(target));
        QVERIFY(!QFileInfo(target).isSymLink());
        QVERIFY(files::read(target) == ownExecutable());
        QCOMPARE(files::mode(target), files::mode(QCoreApplication::applicationFilePath()));
        QCOMPARE(files::read(top / "other"), QByteArray("other"));
        QCOMPARE(UpdaterProbe(*updater).tempCopies.size(), 1);
    }

    void failedCopyIsNotRecorded_data()
    {
        QTest::addColumn<QString>("programName");
        row("directory at the target", "Blocked");
        row("no directory for the target", "missing/Editor");
    }

    void failedCopyIsNotRecorded()
    {
        QFETCH(QString, programName);
        const TestDir top;
        const ScopedTmpDir tmp(top.path());
        files::write(top / "BlockedUpdater/file", "old");
        const QStringList before = files::list(top.path());
        const auto updater = makeUpdater(programName);
        const UpdaterProbe state(*updater);
        state.tempCopies = QStringList{"earlier copy"};

        QString target = "earlier text";
        QVERIFY(!updater->selfCopyToTemp(target));
        QCOMPARE(target, QFileInfo(top.path()).canonicalFilePath() + '/' + programName + "Updater");
        QCOMPARE(state.tempCopies, QStringList{"earlier copy"});
        QCOMPARE(files::list(top.path()), before);
        QCOMPARE(files::read(top / "BlockedUpdater/file"), QByteArray("old"));
    }

    void endOfTheObjectLeavesTheCopies()
    {
        const TestDir top;
        const ScopedTmpDir tmp(top.path());
        QString target;
        auto updater = makeUpdater("Editor");
        QVERIFY(!updater->selfCopyToTemp(target));
        updater.reset();
        QVERIFY(files::read(target) == ownExecutable());
    }
};

int main(int argc, char** argv)
{
    if (argc == 2 && qstrcmp(argv[1], whereOption) == 0)
        return sayWhere(argc, argv);
    const PrivateEnvironment environment;
    const QApplication app(argc, argv);
    TestSelfCopy test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_SelfCopy.moc"
