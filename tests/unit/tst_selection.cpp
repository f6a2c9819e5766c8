// What an update does with every file of a very large release. What it costs is measured by the
// benchmarks; in quadratic time each of these would take minutes, and ctest would end it long
// before.

#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"

class TestSelection : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everySecondOfManyFilesIsSelected()
    {
        constexpr int pairs = 300000;
        const TestDir dir;
        files::write(dir / "here", "");
        const QString sha1 = files::sha1("");
        Updater updater("Editor", dir.path(), "1.0", "", "", "");
        UpdaterProbe run(updater);
        for (int i = 0; i < pairs; ++i) {
            run.programData.files.append({QStringLiteral("away%1").arg(i), sha1, 0});
            run.programData.files.append({"here", sha1, 0});
        }

        run.selectFiles();

        QCOMPARE(static_cast<int>(run.programData.files.size()), pairs);
        for (int i = 0; i < pairs; ++i)
            QCOMPARE(run.programData.files.at(i).name, QStringLiteral("away%1").arg(i));
    }

    void bytesLeftAreCountedDownFromFileToFile()
    {
        constexpr int count = 1000000;
        Updater updater("Editor", "", "1.0", "", "", "");
        UpdaterProbe run(updater);
        run.programData.files.fill({QString(), QString(), 3}, count);
        int wrong = 0;
        for (run.currentFile = 0; run.currentFile < count; ++run.currentFile) {
            if (run.bytesLeft() != 3U * static_cast<quint32>(count - run.currentFile))
                ++wrong;
        }
        QCOMPARE(wrong, 0);
    }
};

UPDATER_TEST_MAIN(TestSelection)
#include "tst_selection.moc"
