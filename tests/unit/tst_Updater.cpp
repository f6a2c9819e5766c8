// The object itself: making and end, slot table, start, cancel, path functions.

#include "updater/Updater.h"

#include "tests/support/EventLoop.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"

#include <QMetaMethod>
#include <QNetworkReply>
#include <QPointer>
#include <QProgressDialog>
#include <QTimer>

#include <algorithm>
#include <memory>

namespace {

std::unique_ptr<Updater> makeUpdater(const QString& url = QString())
{
    return std::make_unique<Updater>("Editor", "/opt/editor", "1.0", url, QString(), QString());
}

int slotIndex(const char* signature)
{
    return Updater::staticMetaObject.indexOfSlot(signature) -
           Updater::staticMetaObject.methodOffset();
}

} // namespace

class TestUpdater : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void constructorTakesOverTheOptions()
    {
        Updater updater("name", "base", "version", "url", "key", "exe", this);
        const UpdaterProbe state(updater);
        QCOMPARE(state.programName, QString("name"));
        QCOMPARE(state.programBaseDir, QString("base"));
        QCOMPARE(state.programVersion, QString("version"));
        QCOMPARE(state.updateUrl, QString("url"));
        QCOMPARE(state.sharedMemKey, QString("key"));
        QCOMPARE(state.programExe, QString("exe"));
        QCOMPARE(updater.parent(), this);
    }

    void constructorLeavesTheRestEmpty()
    {
        const auto updater = makeUpdater();
        const UpdaterProbe state(*updater);
        QVERIFY(!updater->parent());
        QVERIFY(!state.netManager.parent());
        QVERIFY(state.netManager.findChildren<QNetworkReply*>().isEmpty());
        QVERIFY(state.tempCopies.isEmpty());
        QVERIFY(state.programData.name.isEmpty() && state.programData.version.isEmpty());
        QVERIFY(state.programData.changelog.isEmpty() && state.programData.files.isEmpty());
        QVERIFY(!state.programData.required);
        QVERIFY(state.tempDir.isEmpty());
        QVERIFY(!state.checkOnly);
        QVERIFY(!state.progressDialog);
    }

    void manifestMembersWriteReadAndExtract()
    {
        Updater updater("", "", "", "", "", "");
        ProgramData data;
        data.name = "Editor";
        QString text = "before";
        QVERIFY(!updater.programDataToXml(data, text));
        data.version = "2.0";
        QVERIFY(updater.programDataToXml(data, text));
        QCOMPARE(text, QString("before\n<Editor>\n\t<version>2.0</version>\n\t<required>false"
                               "</required>\n\t<changelog></changelog>\n</Editor>\n"));

        ProgramData read;
        QVERIFY(!updater.xmlToProgramData("Viewer", text, read));
        QVERIFY(updater.xmlToProgramData("editor", text, read));
        QCOMPARE(read.version, QString("2.0"));

        bool found = false;
        QString source = "a <x>1</x> b";
        QCOMPARE(updater.tagValue("x", source, false, &found), QString("1"));
        QVERIFY(found);
        QCOMPARE(source, QString("a <x>1</x> b"));
        QCOMPARE(updater.tagValue("x", source, true, &found), QString("1"));
        QCOMPARE(source, QString("ab"));
        QVERIFY(updater.tagValue("x", source, true, &found).isNull());
        QVERIFY(!found);
    }

    void membersKeepTheirOrder()
    {
        // They are destroyed in the reverse order: the transfers before the options.
        const auto updater = makeUpdater();
        const UpdaterProbe state(*updater);
        const QList<const void*> members{
            &state.programName,     &state.programBaseDir, &state.programVersion,
            &state.updateUrl,       &state.sharedMemKey,   &state.programExe,
            &state.netManager,      &state.tempCopies,     &state.programData,
            &state.tempDir,         &state.checkOnly,      &state.currentFile,
            &state.downloadedFiles, &state.progressDialog};
        QVERIFY(std::is_sorted(members.begin(), members.end()));
    }

    void metaObjectHasThreeSlotsAndNothingElse()
    {
        const QMetaObject& meta = Updater::staticMetaObject;
        QCOMPARE(meta.className(), "Updater");
        QCOMPARE(meta.superClass(), &QObject::staticMetaObject);
        QCOMPARE(meta.methodCount() - meta.methodOffset(), 3);
        QCOMPARE(meta.propertyCount(), meta.propertyOffset());
        QCOMPARE(meta.classInfoCount(), meta.classInfoOffset());
        QCOMPARE(meta.enumeratorCount(), meta.enumeratorOffset());
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            QCOMPARE(meta.method(i).methodType(), QMetaMethod::Slot);
            QCOMPARE(meta.method(i).access(), QMetaMethod::Private);
        }
    }

    void slotsKeepTheirOrder()
    {
        QCOMPARE(slotIndex("getVersionFinished()"), 0);
        QCOMPARE(slotIndex("fileDownloadFinished()"), 1);
        QCOMPARE(slotIndex("cancelUpdate()"), 2);
    }

    void metaCallOfTheThirdSlotCancels()
    {
        const auto updater = makeUpdater();
        void* noArguments[] = {nullptr};
        int left = 0;
        QTimer::singleShot(0, updater.get(), [&] {
            left = updater->qt_metacall(QMetaObject::InvokeMetaMethod,
                                        Updater::staticMetaObject.methodOffset() + 2, noArguments);
        });
        QCOMPARE(runEventLoop(), 0);
        QCOMPARE(left, -1);
    }

    void metaCallTakesThreeOffTheIndex()
    {
        const auto updater = makeUpdater();
        void* noArguments[] = {nullptr};
        const int index = Updater::staticMetaObject.methodCount() + 4;
        QCOMPARE(updater->qt_metacall(QMetaObject::InvokeMetaMethod, index, noArguments), 4);
        // For other kinds of call the index is that of QObject.
        const int inherited = QObject::staticMetaObject.propertyCount();
        QCOMPARE(updater->qt_metacall(QMetaObject::ReadProperty, inherited + 7, noArguments), 7);
    }

    void castKnowsTheExactClassName_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<bool>("known");
        row("own name", QByteArray("Updater"), true);
        row("base class", QByteArray("QObject"), true);
        row("lower case", QByteArray("updater"), false);
        row("another class", QByteArray("QWidget"), false);
        row("beginning of the name", QByteArray("Update"), false);
    }

    void castKnowsTheExactClassName()
    {
        QFETCH(QByteArray, name);
        QFETCH(bool, known);
        const auto updater = makeUpdater();
        QCOMPARE(updater->qt_metacast(name.constData()), known ? updater.get() : nullptr);
    }

    void castToNoNameGivesNull() { QVERIFY(!makeUpdater()->qt_metacast(nullptr)); }

    void startSendsOneRequestForTheVersionFile_data()
    {
        QTest::addColumn<bool>("checkOnly");
        row("check only", true);
        row("update", false);
    }

    void startSendsOneRequestForTheVersionFile()
    {
        QFETCH(bool, checkOnly);
        HttpServer server;
        server.serve("/releases/index.txt?channel=stable", HttpReply::hold(HttpReply::ok("")));
        const auto updater = makeUpdater(server.url("/releases/index.txt?channel=stable"));
        const UpdaterProbe state(*updater);
        state.checkOnly = !checkOnly;

        QVERIFY(updater->start(checkOnly));
        QCOMPARE(state.checkOnly, checkOnly);
        QCOMPARE(state.netManager.findChildren<QNetworkReply*>().size(), 1);
        QTRY_COMPARE(server.requests().size(), 1);
        QCOMPARE(server.requests().first(), QString("/releases/index.txt?channel=stable"));
        QVERIFY(server.lastHeader().startsWith("GET "));
        QVERIFY(!state.progressDialog);
    }

    void endOfTheObjectDropsItsTransfers()
    {
        HttpServer server;
        server.serve("/index.txt", HttpReply::hold(HttpReply::ok("")));
        auto updater = makeUpdater(server.url("/index.txt"));
        updater->start(true);
        QTRY_COMPARE(server.requests().size(), 1);
        const QPointer<QNetworkReply> reply =
            UpdaterProbe(*updater).netManager.findChild<QNetworkReply*>();
        QVERIFY(reply);
        updater.reset();
        QVERIFY(!reply);
    }

    void cancelEndsTheEventLoopWithZero()
    {
        const auto updater = makeUpdater();
        QTimer::singleShot(0, updater.get(), SLOT(cancelUpdate()));
        QCOMPARE(runEventLoop(), 0);
    }

    void cancelLeavesTransfersAlone()
    {
        HttpServer server;
        server.serve("/index.txt", HttpReply::hold(HttpReply::ok("")));
        const auto updater = makeUpdater(server.url("/index.txt"));
        updater->start(true);
        const auto* reply = UpdaterProbe(*updater).netManager.findChild<QNetworkReply*>();
        QTimer::singleShot(0, updater.get(), SLOT(cancelUpdate()));
        QCOMPARE(runEventLoop(), 0);
        QVERIFY(reply->isRunning());
        QCOMPARE(reply->error(), QNetworkReply::NoError);
    }

    void endOfTheObjectClosesAndReleasesTheDialog()
    {
        auto updater = makeUpdater();
        const QPointer<QProgressDialog> dialog(new QProgressDialog);
        UpdaterProbe(*updater).progressDialog = dialog;
        dialog->show();
        QVERIFY(dialog->isVisible());
        updater.reset();
        QVERIFY2(dialog, "the dialog is deleted at once");
        QVERIFY(!dialog->isVisible());
        QCoreApplication::sendPostedEvents(dialog, QEvent::DeferredDelete);
        QVERIFY(!dialog);
    }

    void endOfAnObjectWithoutDialogTouchesNoWindow()
    {
        QWidget bystander;
        bystander.show();
        makeUpdater().reset();
        QVERIFY(bystander.isVisible());
        QCOMPARE(QApplication::topLevelWidgets(), QWidgetList{&bystander});
    }

    void installedVersionNumberIsNeverUpdated()
    {
        const auto updater = makeUpdater();
        QVERIFY(!updater->updateInstallVersionNumber());
        QCOMPARE(UpdaterProbe(*updater).programVersion, QString("1.0"));
    }

    void pathsGainAndLoseSeparators_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("with");
        QTest::addColumn<QString>("without");
        row("name at the end", "/opt/app", "/opt/app/", "/opt/app");
        row("slash at the end", "/opt/app/", "/opt/app/", "/opt/app");
        row("backslash at the end", "C:\\app\\", "C:\\app\\", "C:\\app");
        row("two slashes at the end", "/opt//", "/opt//", "/opt");
        row("both kinds at the end", "/opt\\/", "/opt\\/", "/opt");
        row("single slash", "/", "/", "");
        row("only separators", "/\\//", "/\\//", "");
        row("empty", "", "/", "");
        row("separators inside stay", "/a//b", "/a//b/", "/a//b");
    }

    void pathsGainAndLoseSeparators()
    {
        QFETCH(QString, path);
        QFETCH(QString, with);
        QFETCH(QString, without);
        const auto updater = makeUpdater();
        QString longer = path;
        updater->endWithSeparator(longer);
        QCOMPARE(longer, with);
        QString shorter = path;
        updater->endWithoutSeparator(shorter);
        QCOMPARE(shorter, without);
    }
};

UPDATER_TEST_MAIN(TestUpdater)
#include "tst_Updater.moc"
