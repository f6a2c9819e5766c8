// Behaviour that differs between versions of Qt, and is the same here with all of them.

#include "manifest/QtVersions.h"

#include "manifest/ManifestText.h"
#include "updater/Requests.h"

#include "tests/support/Messages.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <QLoggingCategory>
#include <QNetworkRequest>
#include <QTextStream>
#include <QUrl>

class TestQtVersions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void debugTextReachesTheHandlerToTheLetter_data()
    {
        QTest::addColumn<QString>("text");
        row("plain", "plain");
        row("space at the end", "text ");
        row("quotes and backslashes", "a \"b\" \\n c");
        row("outside ASCII", QString::fromUtf8("Größe \xE2\x82\xAC"));
        row("placeholders", "%1 %s %n");
    }

    void debugTextReachesTheHandlerToTheLetter()
    {
        QFETCH(QString, text);
        const Messages messages;
        qtversions::debug(text);
        QCOMPARE(messages.all().size(), 1);
        QCOMPARE(messages.all().first().first, QtDebugMsg);
        QCOMPARE(messages.all().first().second, text);
    }

    void debugTextReachesTheHandlerWhateverTheRules()
    {
        const Messages messages;
        QLoggingCategory::setFilterRules("*.debug=false");
        qtversions::debug("text");
        qDebug() << "another text";
        QLoggingCategory::setFilterRules(QString());
        qDebug() << "after the rules";
        QCOMPARE(messages.all().size(), 2);
        QCOMPARE(messages.all().first().second, QString("text"));
        QCOMPARE(messages.all().last().second, QString("after the rules"));
    }

    void usersRulesDoNotReachTheTests_data()
    {
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("value"); // %1: a directory with a configuration.
        row("user's configuration", "XDG_CONFIG_HOME", "%1");
        row("system's configuration", "XDG_CONFIG_DIRS", "%1");
        row("configuration for logging", "QT_LOGGING_CONF", "%1/QtProject/qtlogging.ini");
        row("rules", "QT_LOGGING_RULES", "*.debug=false");
    }

    /// Runs the test before this one, which would fail with such rules.
    void usersRulesDoNotReachTheTests()
    {
        QFETCH(QString, variable);
        QFETCH(QString, value);
        const TestDir config;
        files::write(config / "QtProject/qtlogging.ini", "[Rules]\n*.debug=false\n");
        const QByteArray failure = ownprocess::failureOf(
            "debugTextReachesTheHandlerWhateverTheRules", {{variable, value.arg(config.path())}});
        QVERIFY2(failure.isNull(), failure.constData());
    }

    void utf8StreamReadsAndWritesUtf8()
    {
        const QString text = QString::fromUtf8("\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
        QByteArray bytes;
        {
            QTextStream stream(&bytes, QIODevice::WriteOnly);
            qtversions::useUtf8(stream);
            stream << text;
        }
        QCOMPARE(bytes, text.toUtf8());
        QTextStream stream(bytes);
        qtversions::useUtf8(stream);
        QCOMPARE(stream.readAll(), text);
    }

    void systemEncodingIsThatOfLocalText()
    {
        const QString text = QString::fromUtf8("plain \xC3\xA4");
        QByteArray bytes;
        {
            QTextStream stream(&bytes, QIODevice::WriteOnly);
            qtversions::useSystemEncoding(stream);
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
            QCOMPARE(stream.encoding(), QStringConverter::System);
#endif
            stream << text;
        }
        QCOMPARE(bytes, text.toLocal8Bit());
    }

    void bytesBecomeOneCharacterEachUpToTheFirstZero_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("expected");
        row("nothing", QByteArray(), QString());
        row("ASCII", QByteArray("abc"), "abc");
        row("bytes above 127", QByteArray("\xC3\xA4"), QString(QChar(0xC3)) + QChar(0xA4));
        row("zero byte inside", QByteArray("ab\0cd", 5), "ab");
        row("zero byte first", QByteArray("\0cd", 3), QString());
    }

    void bytesBecomeOneCharacterEachUpToTheFirstZero()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, expected);
        QCOMPARE(manifest::textFromBytes(bytes), expected);
    }

    void requestsNeitherFollowRedirectsNorLimitInflation()
    {
        const QUrl url("http://127.0.0.1/a%20b?c");
        const QNetworkRequest request = requests::requestFor(url);
        QCOMPARE(request.url(), url);
        QCOMPARE(request.attribute(QNetworkRequest::RedirectPolicyAttribute).toInt(),
                 static_cast<int>(QNetworkRequest::ManualRedirectPolicy));
#if QT_VERSION >= QT_VERSION_CHECK(6, 2, 0)
        QCOMPARE(request.decompressedSafetyCheckThreshold(), qint64(-1));
#endif
    }
};

UPDATER_TEST_MAIN(TestQtVersions)
#include "tst_QtVersions.moc"
