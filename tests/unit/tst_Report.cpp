// The report to the host application, against a host in a process of its own.

#include "updater/Updater.h"

#include "tests/support/HostProcess.h"
#include "tests/support/Messages.h"
#include "tests/support/Needs.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <QEvent>
#include <QSharedMemory>
#include <QTimer>

#include <atomic>
#include <future>
#include <memory>

namespace {

std::unique_ptr<Updater> updaterWithKey(const QString& key)
{
    return std::make_unique<Updater>("Editor", "/opt/editor", "1.0", QString(), key, QString());
}

void report(const QString& key, const QString& text, bool flag)
{
    updaterWithKey(key)->writeVersionToSHM(text, flag);
}

QByteArray zeros(int count)
{
    return QByteArray(count, '\0');
}

/// Counts the children that an object gets.
class ChildCounter : public QObject
{
public:
    explicit ChildCounter(QObject* parent) { parent->installEventFilter(this); }

    int added() const { return m_added; }

    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::ChildAdded)
            ++m_added;
        return false;
    }

private:
    int m_added = 0;
};

/// Records whether the event loop has run since this object was made.
class EventLoopWatch
{
public:
    EventLoopWatch()
    {
        QTimer::singleShot(0, &m_context, [this] { m_hasRun = true; });
    }

    bool hasRun() const { return m_hasRun; }

private:
    QObject m_context;
    bool m_hasRun = false;
};

} // namespace

class TestReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void reportHasFixedBytes_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("flag");
        QTest::addColumn<QByteArray>("expected");

        row("flag set, exactly large enough", 6, "2.1", true, QByteArray("2.1\0001\0", 6));
        row("flag not set, exactly large enough", 6, "2.1", false, QByteArray("2.1\0000\0", 6));
        row("one byte more becomes zero", 7, "2.1", true, QByteArray("2.1\0001\0\0", 7));
        row("all of the rest becomes zero", 5000, "2.1", true,
            QByteArray("2.1\0001\0", 6) + zeros(4994));
        row("one byte too small stays as it was", 5, "2.1", true, HostProcess::untouched(5));
        row("segment with room for the text alone stays as it was", 3, "2.1", true,
            HostProcess::untouched(3));
        row("single byte stays as it was", 1, "2.1", true, HostProcess::untouched(1));

        row("error, exactly large enough", 8, "ERROR", false, QByteArray("ERROR\0000\0", 8));
        row("error, one byte too small", 7, "ERROR", false, HostProcess::untouched(7));

        row("empty text, flag not set", 5, "", false, QByteArray("\0000\0\0\0", 5));
        row("empty text, flag set, exactly large enough", 3, "", true, QByteArray("\0001\0", 3));
        row("empty text, one byte too small", 2, "", true, HostProcess::untouched(2));
        row("null text", 3, QString(), false, QByteArray("\0000\0", 3));

        row("Latin-1 characters are one byte each", 7,
            QString::fromUtf8("\xC3\xA4\xC3\xBF\xC2\xA0\xC3\x80"), true,
            QByteArray("\xE4\xFF\xA0\xC0\0001\0", 7));
        row("characters that Latin-1 lacks are question marks", 6,
            QString::fromUtf8("1\xE2\x82\xAC\xC4\x80"), true, QByteArray("1??\0001\0", 6));
        row("character outside the basic plane is two question marks", 6,
            QString::fromUtf8("1\xF0\x9F\x98\x80"), true, QByteArray("1??\0001\0", 6));
        row("size counts characters, not UTF-8 bytes", 4, QString::fromUtf8("\xE2\x82\xAC"), true,
            QByteArray("?\0001\0", 4));
        row("zero character inside the text", 8, QString(QLatin1String("a\0b", 3)), true,
            QByteArray("a\0b\0001\0\0\0", 8));
        row("zero character counts for the size", 5, QString(QLatin1String("a\0b", 3)), true,
            HostProcess::untouched(5));
        row("spaces stay", 7, " 1 \n", true, QByteArray(" 1 \n\0001\0", 7));
        row("long text", 100003, QString(100000, 'x'), true,
            QByteArray(100000, 'x') + QByteArray("\0001\0", 3));
    }

    void reportHasFixedBytes()
    {
        QFETCH(int, size);
        QFETCH(QString, text);
        QFETCH(bool, flag);
        QFETCH(QByteArray, expected);
        HostProcess host(size);
        QCOMPARE(host.dump(), HostProcess::untouched(size));
        report(host.key(), text, flag);
        QCOMPARE(host.dump().toHex(' '), expected.toHex(' '));
    }

    void laterReportReplacesALongerOne()
    {
        HostProcess host(32);
        const auto updater = updaterWithKey(host.key());
        updater->writeVersionToSHM("10.20.30-candidate", true);
        updater->writeVersionToSHM("2", false);
        QCOMPARE(host.dump(), QByteArray("2\0000\0", 4) + zeros(28));
    }

    void laterReportThatDoesNotFitLeavesTheEarlierOne()
    {
        HostProcess host(8);
        const auto updater = updaterWithKey(host.key());
        updater->writeVersionToSHM("ERROR", false);
        updater->writeVersionToSHM("10.20.30", true);
        QCOMPARE(host.dump(), QByteArray("ERROR\0000\0", 8));
    }

    void emptyKeyMeansThatNothingHappens_data()
    {
        QTest::addColumn<QString>("key");
        row("empty", "");
        row("null", QString());
    }

    void emptyKeyMeansThatNothingHappens()
    {
        QFETCH(QString, key);
        HostProcess host(16);
        const auto updater = updaterWithKey(key);
        const ChildCounter children(updater.get());
        const Messages messages;
        const QStringList filesBefore = files::list(QDir::tempPath());

        updater->writeVersionToSHM("2.1", true);
        QCOMPARE(host.dump(), HostProcess::untouched(16));
        QCOMPARE(files::list(QDir::tempPath()), filesBefore);
        QCOMPARE(messages.all().size(), 0);
        QVERIFY2(children.added() == 0, "it tries to attach");
    }

    void onlyTheSegmentWithTheKeyIsWritten()
    {
        HostProcess host(16);
        HostProcess other(16);
        report(host.key(), "2.1", true);
        QCOMPARE(host.dump(), QByteArray("2.1\0001\0", 6) + zeros(10));
        QCOMPARE(other.dump(), HostProcess::untouched(16));
    }

    void missingSegmentIsPassedOverInSilence()
    {
        const QString key = HostProcess::unusedKey();
        const auto updater = updaterWithKey(key);
        const ChildCounter children(updater.get());
        const EventLoopWatch eventLoop;
        const Messages messages;

        updater->writeVersionToSHM("2.1", true);
        QVERIFY2(!eventLoop.hasRun(), "it waits for the segment or shows a box");
        QCOMPARE(children.added(), 1);
        QCOMPARE(messages.all().size(), 0);
        QVERIFY(QApplication::topLevelWidgets().isEmpty());
        QVERIFY2(!HostProcess::segmentExists(key), "the updater has made a segment");
    }

    void refusedAttachIsPassedOverInSilence()
    {
        ENFORCE_PERMISSIONS();
        HostProcess host(16);
        {
            const ScopedMode locked(QDir::tempPath(), 0);
            const Messages messages;
            report(host.key(), "2.1", true);
            QCOMPARE(messages.all().size(), 0);
        }
        QCOMPARE(host.dump(), HostProcess::untouched(16));
    }

    void reportNeedsNoEventLoop()
    {
        HostProcess host(16);
        const EventLoopWatch eventLoop;
        report(host.key(), "2.1", true);
        QVERIFY(!eventLoop.hasRun());
    }

    void reportWaitsForTheLock()
    {
        std::future<void> writer;
        std::atomic<bool> written{false};
        HostProcess host(16);
        QVERIFY(host.lock());
        writer = std::async(std::launch::async, [&written, key = host.key()] {
            report(key, "2.1", true);
            written = true;
        });

        QTRY_COMPARE_WITH_TIMEOUT(host.waiting(), 1, 30000);
        QVERIFY(!written);
        QCOMPARE(host.dump(), HostProcess::untouched(16));

        QVERIFY(host.unlock());
        QTRY_VERIFY_WITH_TIMEOUT(written, 30000);
        QCOMPARE(host.dump(), QByteArray("2.1\0001\0", 6) + zeros(10));
    }

    void segmentIsDetachedBeforeItIsUnlocked()
    {
        HostProcess host(16);
        const auto updater = updaterWithKey(host.key());
        const Messages messages;
        updater->writeVersionToSHM("2.1", true);
        // Qt prints this when a process detaches from a segment that it has locked.
        QCOMPARE(messages.all().size(), 1);
        QCOMPARE(messages.all().first().first, QtWarningMsg);
        QCOMPARE(messages.all().first().second, QString("QSharedMemory::lock: already locked"));
    }

    void nothingIsHeldAfterAReport_data()
    {
        QTest::addColumn<int>("size");
        row("segment large enough", 16);
        row("segment too small", 2);
    }

    void nothingIsHeldAfterAReport()
    {
        QFETCH(int, size);
        HostProcess host(size);
        const auto updater = updaterWithKey(host.key());
        const ChildCounter children(updater.get());
        updater->writeVersionToSHM("2.1", true);

        QCOMPARE(children.added(), 1);
        QVERIFY(updater->findChildren<QSharedMemory*>().isEmpty());
        QVERIFY2(host.lock(), "the lock is still taken");
        QVERIFY(host.unlock());
        QVERIFY(HostProcess::segmentExists(host.key()));
        QVERIFY(host.quit());
        QVERIFY2(!HostProcess::segmentExists(host.key()), "the updater is still attached");
    }

    void nothingIsHeldAfterAFailedReport()
    {
        const auto updater = updaterWithKey(HostProcess::unusedKey());
        updater->writeVersionToSHM("2.1", true);
        QVERIFY(updater->findChildren<QSharedMemory*>().isEmpty());
    }
};

UPDATER_TEST_MAIN(TestReport)
#include "tst_Report.moc"
