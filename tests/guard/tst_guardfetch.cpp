// One small file from the web server: what counts as fetched, and what does not.

#include "host/guard/Fetch.h"

#include "tests/guard/StreamingServer.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Row.h"
#include "tests/support/Sample.h"
#include "tests/support/TestMain.h"

#include <QElapsedTimer>
#include <QNetworkReply>

Q_DECLARE_METATYPE(HttpReply)

namespace {

/// More than any body here.
constexpr qint64 plenty = 100 * 1024 * 1024;

/// Long enough for everything that is not meant to take long.
constexpr int minute = 60;

QByteArray headerFor(qint64 length)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(length) + "\r\n\r\n";
}

/// A reply that has ended, as Qt may present it.
class EndedReply : public QNetworkReply
{
public:
    EndedReply(const QByteArray& length, const QByteArray& encoding, NetworkError error)
    {
        if (!length.isEmpty())
            setRawHeader("Content-Length", length);
        if (!encoding.isEmpty())
            setRawHeader("Content-Encoding", encoding);
        if (error != NoError)
            setError(error, "in Qt's words");
    }

    void abort() override {}

protected:
    qint64 readData(char*, qint64) override { return -1; }
};

/// A reply of which @p announced bytes are announced and the connection stays open after its body.
HttpReply unfinished(const QByteArray& body, qint64 announced)
{
    HttpReply reply = HttpReply::ok(body);
    reply.declaredLength = announced;
    return reply;
}

} // namespace

class TestGuardFetch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bodyComes_data()
    {
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<QByteArray>("body");

        const QByteArray text("<Editor>\n\t<version>2.0</version>\n");
        const QByteArray bytes = QByteArray("\0\xff\r\n\r\n", 6).repeated(500000);
        row("text", HttpReply::ok(text), text);
        row("nothing", HttpReply::ok(""), QByteArray(""));
        row("large", HttpReply::ok(bytes), bytes);
        row("in chunks", HttpReply::chunked(bytes), bytes);
        row("packed", HttpReply::gzipped(text), text);
        row("large and packed", HttpReply::gzipped(bytes), bytes);
        HttpReply withoutLength = HttpReply::with(HttpReply::Close, HttpReply::ok(text));
        withoutLength.lengthGiven = false;
        row("without a length", withoutLength, text);
    }

    void bodyComes()
    {
        QFETCH(HttpReply, reply);
        QFETCH(QByteArray, body);
        HttpServer server;
        server.serve("/index.txt", reply);
        const Fetched fetched = fetch(QUrl(server.url("/index.txt")), plenty, minute);
        QCOMPARE(fetched.failure, QString());
        QVERIFY(fetched.body == body);
        QCOMPARE(server.requests(), QStringList{"/index.txt"});
    }

    void failureIsReported_data()
    {
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<QString>("failure");

        const QByteArray body(5000, 'b');
        const QString anything;
        const auto status = [](int number) {
            return QString("the server answered with status %1").arg(number);
        };
        for (const int number : {201, 204, 206, 304, 400, 401, 403, 404, 410, 416, 500, 502, 503})
            row(QString("status %1").arg(number), HttpReply::error(number), status(number));
        row("another status with a body", HttpReply::error(203, body), status(203));
        row("an error page", HttpReply::error(404, body), status(404));
        row("redirect", HttpReply::redirect("/other"), status(302));
        row("redirect with a body", HttpReply::redirect("/other", body), status(302));
        row("redirect elsewhere", HttpReply::redirect("https://127.0.0.1:1/x", body), status(302));
        row("cut", HttpReply::cutShort(body, 2000), anything);
        row("cut before the body", HttpReply::cutShort(body, 0), anything);
        row("cut before the last byte", HttpReply::cutShort(body, 4999), anything);
        row("reset in the body", HttpReply::resetInBody(body, 2000), anything);
        row("reset", HttpReply::reset(), anything);
        row("stalled, then closed", HttpReply::stallInBody(body, 2000), anything);
    }

    void failureIsReported()
    {
        QFETCH(HttpReply, reply);
        QFETCH(QString, failure);
        HttpServer server;
        server.serve("/index.txt", reply);
        server.serve("/other", HttpReply::ok("other"));
        const Fetched fetched = fetch(QUrl(server.url("/index.txt")), plenty, minute);
        QVERIFY(!fetched.failure.isEmpty());
        if (!failure.isEmpty())
            QCOMPARE(fetched.failure, failure);
        QCOMPARE(fetched.body, QByteArray());
        QCOMPARE(server.requestsFor("/other"), 0);
    }

    /// Not what servers do, but what Qt does now and then when they end a connection.
    void endWithoutAnErrorMayBeDamage_data()
    {
        QTest::addColumn<QByteArray>("length");
        QTest::addColumn<QByteArray>("encoding");
        QTest::addColumn<QNetworkReply::NetworkError>("error");
        QTest::addColumn<qint64>("received");
        QTest::addColumn<QString>("damage");
        const QByteArray none;
        const auto good = QNetworkReply::NoError;
        const auto bad = QNetworkReply::RemoteHostClosedError;
        row("whole", QByteArray("10"), none, good, qint64(10), QString());
        row("nothing", QByteArray("0"), none, good, qint64(0), QString());
        row("cut", QByteArray("10"), none, good, qint64(9), "the transfer ended early");
        row("cut at once", QByteArray("10"), none, good, qint64(0), "the transfer ended early");
        row("error", QByteArray("10"), none, bad, qint64(10), "in Qt's words");
        row("of unknown length", none, none, good, qint64(9), QString());
        row("packed", QByteArray("10"), QByteArray("gzip"), good, qint64(90), QString());
        row("packed, with an error", none, QByteArray("gzip"), bad, qint64(90), "in Qt's words");
    }

    void endWithoutAnErrorMayBeDamage()
    {
        QFETCH(QByteArray, length);
        QFETCH(QByteArray, encoding);
        QFETCH(QNetworkReply::NetworkError, error);
        QFETCH(qint64, received);
        QFETCH(QString, damage);
        QCOMPARE(damageOf(EndedReply(length, encoding, error), received), damage);
    }

    void urlWithoutServerFails_data()
    {
        QTest::addColumn<QString>("url");
        const TestDir dir;
        files::write(dir / "index.txt", "a file");
        row("file", QUrl::fromLocalFile(dir / "index.txt").toString());
        row("data", QString("data:text/plain,hello"));
        row("no scheme", QString("index.txt"));
        row("empty", QString());
        row("unknown scheme", QString("gopher://127.0.0.1/index.txt"));
        row("nobody listens", QString("http://127.0.0.1:1/index.txt"));
    }

    void urlWithoutServerFails()
    {
        QFETCH(QString, url);
        const Fetched fetched = fetch(QUrl(url), plenty, minute);
        QVERIFY(!fetched.failure.isEmpty());
        QCOMPARE(fetched.body, QByteArray());
    }

    void limitIsForWhatIsUnpacked_data()
    {
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<bool>("comes");
        row("as much", HttpReply::ok(QByteArray(100000, 'x')), true);
        row("one more", HttpReply::ok(QByteArray(100001, 'x')), false);
        row("as much, packed", HttpReply::gzipped(QByteArray(100000, 'x')), true);
        row("one more, packed", HttpReply::gzipped(QByteArray(100001, 'x')), false);
        row("much more, packed", HttpReply::gzipped(QByteArray(8 * 1024 * 1024, 'x')), false);
        row("one more, in chunks", HttpReply::chunked(QByteArray(100001, 'x')), false);
    }

    void limitIsForWhatIsUnpacked()
    {
        QFETCH(HttpReply, reply);
        QFETCH(bool, comes);
        HttpServer server;
        server.serve("/index.txt", reply);
        const Fetched fetched = fetch(QUrl(server.url("/index.txt")), 100000, minute);
        QCOMPARE(fetched.failure, comes ? QString() : QString("more than 100000 bytes"));
        QCOMPARE(fetched.body, QByteArray(comes ? 100000 : 0, 'x'));
    }

    /// With an endless body the end of the transfer must not be waited for.
    void transferEndsAtTheLimit()
    {
        qint64 sent = 0;
        const QByteArray block(65536, 'x');
        const StreamingServer server([&](QTcpSocket* client) {
            QObject::connect(client, &QTcpSocket::bytesWritten, client, [&, client](qint64 count) {
                sent += count;
                if (client->bytesToWrite() < block.size())
                    client->write(block);
            });
            client->write(headerFor(1LL << 40));
        });
        const Fetched fetched = fetch(server.url(), 1000000, minute);
        QCOMPARE(fetched.failure, QString("more than 1000000 bytes"));
        // The rest is what the system's buffers take.
        QVERIFY2(sent < 30000000, qPrintable(QString::number(sent)));
    }

    void silenceEndsTheTransfer_data()
    {
        QTest::addColumn<HttpReply>("reply");
        HttpReply silent;
        silent.silent = true;
        row("no answer", silent);
        row("half a body", unfinished("half", 8));
        if (!everyRowIsWanted())
            return;
        row("no body", unfinished("", 100));
        row("half a chunk",
            HttpReply::with(HttpReply::KeepAlive, HttpReply::cutChunked(QByteArray(5000, 'c'))));
    }

    void silenceEndsTheTransfer()
    {
        QFETCH(HttpReply, reply);
        HttpServer server;
        server.serve("/index.txt", reply);
        const Fetched fetched = fetch(QUrl(server.url("/index.txt")), plenty, 1);
        QCOMPARE(fetched.failure, QString("nothing came for 1 seconds"));
        QCOMPARE(fetched.body, QByteArray());
    }

    /// The whole takes longer than the server may be silent.
    void slowTransferIsNoSilence_data()
    {
        QTest::addColumn<QByteArray>("header");
        QTest::addColumn<QByteArrayList>("packets");
        const QByteArrayList chunks{"1\r\ns\r\n", "1\r\nl\r\n", "1\r\no\r\n", "1\r\nw\r\n",
                                    "1\r\nl\r\n", "1\r\ny\r\n", "0\r\n\r\n"};
        row("plain", headerFor(6), QByteArrayList{"s", "l", "o", "w", "l", "y"});
        if (!everyRowIsWanted()) // Each takes three seconds.
            return;
        row("in chunks", QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"),
            chunks);
        const QByteArray packed = HttpReply::gzipped("slowly").body;
        QByteArrayList pieces;
        for (int i = 0; i < packed.size(); i += 4)
            pieces.append(packed.mid(i, 4));
        row("packed",
            headerFor(packed.size()).replace("OK\r\n", "OK\r\nContent-Encoding: gzip\r\n"), pieces);
    }

    void slowTransferIsNoSilence()
    {
        QFETCH(QByteArray, header);
        QFETCH(QByteArrayList, packets);
        const StreamingServer server([&](QTcpSocket* client) {
            client->write(header);
            auto* timer = new QTimer(client);
            QObject::connect(timer, &QTimer::timeout, client, [=, left = packets]() mutable {
                if (!left.isEmpty())
                    client->write(left.takeFirst());
            });
            timer->start(400);
        });
        QElapsedTimer clock;
        clock.start();
        const Fetched fetched = fetch(server.url(), plenty, 2);
        QCOMPARE(fetched.failure, QString());
        QCOMPARE(fetched.body, QByteArray("slowly"));
        QVERIFY(clock.elapsed() > 2000);
    }

    void requestIsPlain()
    {
        const QNetworkRequest request = guardedRequest(QUrl("https://updates.example/index.txt"));
        QCOMPARE(request.url(), QUrl("https://updates.example/index.txt"));
        QCOMPARE(request.attribute(QNetworkRequest::RedirectPolicyAttribute).toInt(),
                 static_cast<int>(QNetworkRequest::ManualRedirectPolicy));
        const QVariant http2 = request.attribute(QNetworkRequest::Http2AllowedAttribute);
        QVERIFY(http2.isValid() && !http2.toBool());
        HttpServer server;
        server.serve("/index.txt", HttpReply::ok("text"));
        fetch(QUrl(server.url("/index.txt")), plenty, minute);
        QVERIFY(server.lastHeader().contains("gzip"));
    }
};

UPDATER_TEST_MAIN(TestGuardFetch)
#include "tst_guardfetch.moc"
