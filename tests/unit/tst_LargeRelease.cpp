// What an update does with every entry and every file of a very large release. The benchmarks
// measure what that costs. In quadratic time each of these would take minutes, and ctest would end
// this program at its time limit.

#include "manifest/ManifestText.h"

#include "tests/support/EventLoop.h"
#include "tests/support/Records.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"

#include <QNetworkAccessManager>
#include <QProgressDialog>

class TestLargeRelease : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void largeRecordIsReadBack_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("between");
        row("as written", "", "");
        row("text before the first file", "text", "");
        row("text between the files", "", "text");
        row("spaces and halves of tags between the files", "<fi", "\u2003</file>\n<fi");
    }

    void largeRecordIsReadBack()
    {
        QFETCH(QString, before);
        QFETCH(QString, between);
        constexpr int count = 100000;
        ProgramData data{"Editor", "2.1", true, "Y2w=", {}};
        for (int number = 0; number < count; ++number) {
            const QString name = QString("Contents/Resources/%1.dat").arg(number);
            data.files.append({name, QString::number(number, 16).rightJustified(40, '0'),
                               static_cast<quint64>(number)});
        }
        QString text;
        QVERIFY(manifest::write(data, text));
        text.replace("</changelog>", "</changelog>" + before);
        text.replace("\t</file>", "\t</file>" + between);
        ProgramData back;
        QVERIFY(manifest::read("Editor", text, back));
        QCOMPARE(back.files.size(), data.files.size());
        QVERIFY(records::same(back, data));
    }

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

    /// The label included. In a run over all files, what a download does with every entry of the
    /// list would take quadratic time; with the few here it takes longer than the event loop may.
    void downloadTakesNoLongerInALongList()
    {
        constexpr int downloads = 12000;
        constexpr int listed = 3000000;
        Updater updater("Editor", "", "1.0", "data:,/", "", "");
        UpdaterProbe run(updater);
        run.tempDir = "/dev"; // No file is written: disks take their own time.
        run.programData.files.fill(tree::entry("null", "/null"), listed);
        run.progressDialog = new QProgressDialog("An update", "Cancel", 0, listed);
        int replies = 0;
        connect(&run.netManager, &QNetworkAccessManager::finished, &updater, [&replies] {
            if (++replies == downloads)
                QCoreApplication::exit(0);
        });

        QCOMPARE(exitStatusOf([&updater] { updater.downloadNewProgramData(); }), 0);

        QCOMPARE(run.downloadedFiles, downloads);
        QCOMPARE(run.progressDialog->labelText(),
                 QString("Downloading file 12001 of 3000000 (14.25 MB left)"));
    }
};

UPDATER_TEST_MAIN(TestLargeRelease)
#include "tst_LargeRelease.moc"
