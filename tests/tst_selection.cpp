// The selection of the files to download in a very large release. What it costs is measured by
// bench_selection; were the entries erased one by one, this would take minutes, and ctest would end
// it long before.

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
};

UPDATER_TEST_MAIN(TestSelection)
#include "tst_selection.moc"
