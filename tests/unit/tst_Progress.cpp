// The progress dialog: when it is shown, what it counts, and the label that says how much is left.

#include "updater/Updater.h"

#include "tests/support/OwnProcess.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/unit/BracketTranslator.h"
#include "tests/unit/Download.h"
#include "tests/unit/Run.h"

#include <QLocale>
#include <QPointer>
#include <QProgressDialog>
#include <QPushButton>
#include <QRegularExpression>

#include <utility>

namespace {

constexpr quint64 gibibyte = 1024 * mebibyte;

QVector<ProgramFile> filesOfSizes(const QVector<quint64>& sizes)
{
    QVector<ProgramFile> entries;
    for (const quint64 size : sizes)
        entries.append({"a.dat", QString(), size});
    return entries;
}

} // namespace

class TestProgress : public RunTest
{
    Q_OBJECT

private Q_SLOTS:
    // ---- The dialog

    void dialogShowsTheDownloads()
    {
        Run run;
        run.install("here", "here");
        run.publish(editorRecord("2.1", entry("a", "x", 1048576) + entry("here", "here") +
                                            entry("b", "x", 524288)));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QProgressDialog* dialog = run.dialog();
        QVERIFY(dialog);
        QVERIFY(dialog->isVisible());
        QVERIFY(!dialog->parent());
        QVERIFY(dialog->isWindow());
        QCOMPARE(dialog->minimum(), 0);
        QCOMPARE(dialog->maximum(), 2);
        QCOMPARE(dialog->labelText(), QString("Downloading file 1 of 2 (1.50 MB left)"));
        const auto* cancel = dialog->findChild<QPushButton*>();
        QVERIFY(cancel);
        QCOMPARE(cancel->text(), QString("Cancel"));
        QCOMPARE(dialog->windowFlags(), QProgressDialog().windowFlags() | Qt::WindowStaysOnTopHint);
        QCOMPARE(dialog->windowModality(), Qt::NonModal);
        QCOMPARE(QApplication::topLevelWidgets(), QWidgetList{dialog});
    }

    void cancelEndsTheRunWithZero_data()
    {
        QTest::addColumn<QByteArray>("way");
        row("button", QByteArray("button"));
        row("closing the window", QByteArray("close"));
        row("signal", QByteArray("signal"));
    }

    void cancelEndsTheRunWithZero()
    {
        QFETCH(QByteArray, way);
        Run run;
        run.publish(anUpdate());
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QProgressDialog* dialog = run.dialog();
        const int status = exitStatusOf([dialog, way] {
            if (way == "button")
                dialog->findChild<QPushButton*>()->click();
            else if (way == "close")
                dialog->close();
            else
                emit dialog->canceled();
        });
        QCOMPARE(status, 0);
        QVERIFY(QDir(run.baseDir).isEmpty());
    }

    void existingDialogIsKept()
    {
        Run run;
        run.publish(anUpdate());
        const QPointer<QProgressDialog> earlier(new QProgressDialog("earlier", "stop", 3, 4));
        earlier->setMinimumDuration(60000);
        run.state().progressDialog = earlier;
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.dialog(), earlier.data());
        QCOMPARE(QApplication::topLevelWidgets(), QWidgetList{earlier});
        // Nothing about it is changed.
        QVERIFY(!earlier->isVisible());
        QCOMPARE(earlier->labelText(), QString("earlier"));
        QCOMPARE(earlier->minimum(), 3);
        QCOMPARE(earlier->maximum(), 4);
        QVERIFY(!(earlier->windowFlags() & Qt::WindowStaysOnTopHint));
    }

    void dialogTextsAreTranslated()
    {
        const BracketTranslator translator;
        Run run;
        run.publish(anUpdate());
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.dialog()->findChild<QPushButton*>()->text(), QString("[Cancel]"));
        QStringList own = translator.asked().filter(QRegularExpression("^Updater: "));
        own.sort();
        QCOMPARE(own, (QStringList{"Updater: Cancel", "Updater: Update is in progress"}));
        // The label is not translated.
        QCOMPARE(run.dialog()->labelText(), QString("Downloading file 1 of 1 (0.00 MB left)"));
        QVERIFY(translator.asked().filter("Downloading").isEmpty());
    }

    void dialogCountsTheSavedFiles()
    {
        Download download;
        files::write(download.dir / "tmp/other", "keeps the directory");
        const ScopedTmpDir tmp(download.dir / "tmp");
        download.state.programBaseDir = download.dir / "app";
        const QByteArray contents(static_cast<int>(mebibyte), 'x');
        for (const char* name : {"a", "sub/b", "c"})
            download.offer(name, contents);
        download.publish();
        QStringList looks;
        download.beforeEachReply([&] {
            if (download.state.progressDialog)
                looks.append(looksOf(*download.state.progressDialog));
        });
        QCOMPARE(download.run(), 0);

        QCOMPARE(looks, QStringList({"-1 | Downloading file 1 of 3 (3.00 MB left) | shown",
                                     "1 | Downloading file 2 of 3 (2.00 MB left) | shown",
                                     "2 | Downloading file 3 of 3 (1.00 MB left) | shown"}));
        // At its maximum the dialog resets itself.
        QCOMPARE(looksOf(*download.state.progressDialog),
                 QString("-1 | Downloading file 4 of 3 (0.00 MB left) | hidden"));
        QCOMPARE(files::list(download.dir / "app"), QStringList({"a", "c", "sub/", "sub/b"}));
    }

    void dialogKeepsItsStateDuringRetries()
    {
        IN_OWN_PROCESS();
        Download download;
        follow(download, "ok | T H ok | ok");
        const QProgressDialog* dialog = download.openDialog();
        QStringList looks;
        download.beforeEachReply([&] { looks.append(looksOf(*dialog)); });
        QCOMPARE(download.run(), 0);
        const QString second = "1 | Downloading file 2 of 3 (0.00 MB left) | shown";
        QCOMPARE(looks, QStringList({"-1 | An update | shown", second, second, second,
                                     "2 | Downloading file 3 of 3 (0.00 MB left) | shown"}));
    }

    void dialogOfASingleFileEndsHidden()
    {
        Download download;
        follow(download, "ok");
        const QProgressDialog* dialog = download.openDialog();
        QCOMPARE(download.run(), 0);
        QCOMPARE(looksOf(*dialog), QString("-1 | Downloading file 2 of 1 (0.00 MB left) | hidden"));
    }

    void downloadsNeedNoDialog()
    {
        Download download;
        follow(download, "ok | ok");
        QCOMPARE(download.run(), 0);
        QCOMPARE(download.saved(), QStringList({"1", "2"}));
        QVERIFY(!download.state.progressDialog);
        QVERIFY(QApplication::topLevelWidgets().isEmpty());
    }

    void dialogIsHiddenWhileABoxIsShown_data()
    {
        QTest::addColumn<QString>("script");
        row("transfer error", "ok | T T T");
        row("damage", "ok | H H H");
    }

    void dialogIsHiddenWhileABoxIsShown()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        Download download;
        follow(download, script);
        const QProgressDialog* dialog = download.openDialog();
        QStringList looks;
        download.beforeEachReply([&] { looks.append(looksOf(*dialog)); });
        download.boxes.whenShown([&] { looks.append(looksOf(*dialog)); });
        QCOMPARE(download.run(), 1);
        const QString label = "1 | Downloading file 2 of 2 (0.00 MB left)";
        QCOMPARE(looks, QStringList({"-1 | An update | shown", label + " | shown",
                                     label + " | shown", label + " | shown", label + " | hidden"}));
        QVERIFY(!dialog->isVisible());
    }

    // ---- Its label

    void labelShowsFileAndMegabytesLeft_data()
    {
        QTest::addColumn<QVector<quint64>>("sizes");
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("label");
        using Sizes = QVector<quint64>;

        const Sizes three = {mebibyte, mebibyte, mebibyte};
        row("first of three", three, 0, "Downloading file 1 of 3 (3.00 MB left)");
        row("second of three", three, 1, "Downloading file 2 of 3 (2.00 MB left)");
        row("last of three", three, 2, "Downloading file 3 of 3 (1.00 MB left)");
        row("index at the end", three, 3, "Downloading file 4 of 3 (0.00 MB left)");
        row("index after the end", three, 7, "Downloading file 8 of 3 (0.00 MB left)");
        row("no files", Sizes(), 0, "Downloading file 1 of 0 (0.00 MB left)");
        row("different sizes", Sizes{9 * mebibyte, 4 * mebibyte, mebibyte / 2}, 1,
            "Downloading file 2 of 3 (4.50 MB left)");

        const auto addLeft = [](const char* name, const Sizes& sizes, const QString& left) {
            row(name, sizes, 0,
                QString("Downloading file 1 of %1 (%2 MB left)")
                    .arg(QString::number(sizes.size()), left));
        };
        addLeft("empty file", {0}, "0.00");
        addLeft("one byte", {1}, "0.00");
        addLeft("just below half a hundredth", {5242}, "0.00");
        addLeft("just above half a hundredth", {5243}, "0.01");
        addLeft("rounds up to the next one", {mebibyte - 1}, "1.00");
        addLeft("hundredths", {12939427}, "12.34");
        addLeft("small files add up", {2622, 2621}, "0.01");
        addLeft("four digits", {1234 * mebibyte}, "1234.00");
        addLeft("just below 2 GiB", {2 * gibibyte - 1}, "2048.00");
        addLeft("2 GiB become negative", {2 * gibibyte}, "-2048.00");
        addLeft("3 GiB become negative", {3 * gibibyte}, "-1024.00");
        addLeft("1 MiB below 4 GiB", {4 * gibibyte - mebibyte}, "-1.00");
        addLeft("4 GiB count as nothing", {4 * gibibyte}, "0.00");
        addLeft("high half of a size does not count", {(7ULL << 32) + mebibyte}, "1.00");
        addLeft("largest size", {~0ULL - mebibyte + 1}, "-1.00");
        addLeft("sum of 2 GiB becomes negative", {gibibyte, gibibyte}, "-2048.00");
        addLeft("sum becomes negative with one more byte", {2 * gibibyte - 1, 1}, "-2048.00");
        addLeft("sum wraps twice", {3 * gibibyte, 3 * gibibyte, 3 * gibibyte}, "1024.00");
        addLeft("sum of 4 GiB counts as nothing", {3 * gibibyte, gibibyte}, "0.00");
        addLeft("high halves of sizes do not add up",
                {(1ULL << 32) + mebibyte, (1ULL << 33) + mebibyte}, "2.00");
        row("large file before the index does not count", Sizes{2 * gibibyte, mebibyte}, 1,
            "Downloading file 2 of 2 (1.00 MB left)");
        row("thousands of files", Sizes(12345, 0), 1233,
            "Downloading file 1234 of 12345 (0.00 MB left)");
    }

    void labelShowsFileAndMegabytesLeft()
    {
        QFETCH(QVector<quint64>, sizes);
        QFETCH(int, index);
        QFETCH(QString, label);
        Download download;
        download.state.programData.files = filesOfSizes(sizes);
        download.state.currentFile = index;
        const QProgressDialog* dialog = download.openDialog();
        download.updater.updateProgressLabel();
        QCOMPARE(dialog->labelText(), label);
        QCOMPARE(dialog->value(), -1);
        QCOMPARE(download.state.currentFile, index);
    }

    void labelCountsDownFromFileToFile_data()
    {
        QTest::addColumn<QVector<quint64>>("sizes");
        QTest::addColumn<QVector<int>>("indices");
        QTest::addColumn<QStringList>("left");
        using Sizes = QVector<quint64>;
        using Indices = QVector<int>;
        const Sizes four = {8 * mebibyte, 4 * mebibyte, 2 * mebibyte, mebibyte};

        row("one after the other", four, Indices{0, 1, 2, 3, 4},
            QStringList{"15.00", "7.00", "3.00", "1.00", "0.00"});
        row("after the end", four, Indices{3, 4, 5, 6},
            QStringList{"1.00", "0.00", "0.00", "0.00"});
        row("one file twice", four, Indices{0, 1, 1, 2},
            QStringList{"15.00", "7.00", "7.00", "3.00"});
        row("one file left out", four, Indices{0, 2, 3}, QStringList{"15.00", "3.00", "1.00"});
        row("back again", four, Indices{1, 2, 0, 1}, QStringList{"7.00", "3.00", "15.00", "7.00"});
        row("through 2 GiB, and 4 GiB in one file",
            Sizes{3 * gibibyte, 4 * gibibyte, gibibyte, 2 * gibibyte, mebibyte},
            Indices{0, 1, 2, 3, 4, 5},
            QStringList{"-2047.00", "-1023.00", "-1023.00", "-2047.00", "1.00", "0.00"});
    }

    void labelCountsDownFromFileToFile()
    {
        QFETCH(QVector<quint64>, sizes);
        QFETCH(QVector<int>, indices);
        QFETCH(QStringList, left);
        Download download;
        download.state.programData.files = filesOfSizes(sizes);
        const QProgressDialog* dialog = download.openDialog();
        QStringList labels;
        QStringList expected;
        for (const int index : indices) {
            download.state.currentFile = index;
            download.updater.updateProgressLabel();
            labels.append(dialog->labelText());
            expected.append(QString("Downloading file %1 of %2 (%3 MB left)")
                                .arg(QString::number(index + 1), QString::number(sizes.size()),
                                     left.value(expected.size())));
        }
        QCOMPARE(labels, expected);
    }

    void labelFollowsChangesOfTheList()
    {
        // Each step changes the list or the index after the label was last updated.
        Download download;
        QVector<ProgramFile>& list = download.state.programData.files;
        const QProgressDialog* dialog = download.openDialog();
        const auto labelAt = [&](int index) {
            download.state.currentFile = index;
            download.updater.updateProgressLabel();
            return dialog->labelText();
        };
        using Sizes = QVector<quint64>;

        list = filesOfSizes(Sizes(3, mebibyte));
        QCOMPARE(labelAt(0), QString("Downloading file 1 of 3 (3.00 MB left)"));
        list = filesOfSizes(Sizes(3, 4 * mebibyte)); // Another list of the same length.
        QCOMPARE(labelAt(1), QString("Downloading file 2 of 3 (8.00 MB left)"));
        list[2].size = mebibyte; // Another size in the same list.
        QCOMPARE(labelAt(2), QString("Downloading file 3 of 3 (1.00 MB left)"));
        list.append(list.first());
        QCOMPARE(labelAt(3), QString("Downloading file 4 of 4 (4.00 MB left)"));
        list.removeLast();
        QCOMPARE(labelAt(0), QString("Downloading file 1 of 3 (9.00 MB left)"));
        std::swap(list[0], list[2]);
        QCOMPARE(labelAt(1), QString("Downloading file 2 of 3 (8.00 MB left)"));
        list.clear();
        QCOMPARE(labelAt(2), QString("Downloading file 3 of 0 (0.00 MB left)"));
        list = filesOfSizes(Sizes(1, mebibyte));
        QCOMPARE(labelAt(0), QString("Downloading file 1 of 1 (1.00 MB left)"));
    }

    void labelIsTheSameInEveryLanguage()
    {
        const QLocale before;
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        const BracketTranslator translator;
        Download download;
        download.state.programData.files =
            filesOfSizes(QVector<quint64>(1500, mebibyte + mebibyte / 4));
        download.state.currentFile = 99;
        const QProgressDialog* dialog = download.openDialog();
        download.updater.updateProgressLabel();
        QLocale::setDefault(before);
        QCOMPARE(dialog->labelText(), QString("Downloading file 100 of 1500 (1751.25 MB left)"));
        QVERIFY(translator.asked().filter("Downloading").isEmpty());
    }

    void labelNeedsADialog()
    {
        Download download;
        follow(download, "ok");
        download.updater.updateProgressLabel();
        QVERIFY(!download.state.progressDialog);
        QVERIFY(QApplication::topLevelWidgets().isEmpty());
    }

    void labelOfASecondRunCountsAllItsFiles()
    {
        Run run;
        run.publish(editorRecord("2.1", entry("a", "x", 5 * mebibyte) + entry("b", "x", mebibyte)));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.dialog()->labelText(), QString("Downloading file 1 of 2 (6.00 MB left)"));
        run.publish(editorRecord("2.2", entry("a", "x", mebibyte) + entry("b", "x", 2 * mebibyte) +
                                            entry("c", "x", 4 * mebibyte)));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        run.state().currentFile = 1; // The second run adds its files to those of the first.
        run.updater().updateProgressLabel();
        QCOMPARE(run.dialog()->labelText(), QString("Downloading file 2 of 5 (8.00 MB left)"));
    }

    void labelCountsTheFilesOfACheckInBetween()
    {
        Run run;
        run.publish(editorRecord("2.1", entry("a", "x", 5 * mebibyte) + entry("b", "x", mebibyte)));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        run.publish(editorRecord("2.2", entry("c", "x", 2 * mebibyte)));
        QCOMPARE(run.check(), 0);
        run.state().currentFile = 1; // The check has added its file to the list.
        run.updater().updateProgressLabel();
        QCOMPARE(run.dialog()->labelText(), QString("Downloading file 2 of 3 (3.00 MB left)"));
    }
};

UPDATER_TEST_MAIN(TestProgress)
#include "moc_Run.cpp"
#include "tst_Progress.moc"
