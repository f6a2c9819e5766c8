// Which signatures count, of the published test vectors, of pairs that were made once, and of those
// that the real programs make.

#include "host/guard/Signature.h"

#include "tests/support/Command.h"
#include "tests/support/Files.h"
#include "tests/support/Needs.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

namespace {

const QByteArray numberOfOurKey = "12345678";

/// The two lines of a key or a signature.
QByteArray twoLines(const QByteArray& bytes, const QByteArray& comment = "untrusted comment: ours")
{
    return comment + '\n' + bytes.toBase64() + '\n';
}

/// The key or the signature with the hexadecimal digits @p value.
QByteArray twoLinesOf(const QByteArray& value)
{
    return twoLines("Ed" + numberOfOurKey + QByteArray::fromHex(value));
}

/// The bytes of the second line of @p text.
QByteArray bytesOf(const QByteArray& text)
{
    return QByteArray::fromBase64(text.split('\n').at(1));
}

/// What became of reading a key.
struct ReadKey
{
    std::optional<guard::PublicKey> key;
    QString why;
};

ReadKey readKey(const QByteArray& text)
{
    const TestDir dir;
    files::write(dir / "key.pub", text);
    ReadKey read;
    read.key = guard::PublicKey::fromFile(dir / "key.pub", read.why);
    read.why.replace(dir.path(), "DIR");
    return read;
}

/// The fixed pairs are of this message.
const QByteArray message = "<Editor>\n\t<version>2.0</version>\n</Editor>\n";

const QByteArray signifyKey = "untrusted comment: Editor releases public key\n"
                              "RWRGyDPde/UNyP0mmbkr4IRH7qkn+mn10o7IdnXBbLoZPKWg6byIdzFZ\n";
const QByteArray signifySignature =
    "untrusted comment: verify with s.pub\n"
    "RWRGyDPde/"
    "UNyNY1FGuGsgO4bgQ+NYE4Ew3kr3FqLWuEu0qS0mbtwdx76y4UCQBGsBioPIZ7UoeYX0fo5iIU37muhUkajESw"
    "lws=\n";

const QByteArray minisignKey = "untrusted comment: minisign public key 669D58DC4EFCEF93\n"
                               "RWST7/xO3FidZiTtCirzGw6/oQqHCRRX10AZrjL1GkPTyJCZZaZdTiQk\n";
const QByteArray minisignSignature =
    "untrusted comment: signature from minisign secret key\n"
    "RWST7/xO3FidZibipO4SIAINeK6jOdeuHy+43UdBjREQ7BVrohbktc/"
    "qN2dgjOhtELEeESl9R35ZpZCD8ZUZTjq1UMPGlLe9"
    "cAA=\n"
    "trusted comment: timestamp:1795336057\tfile:index.txt\n"
    "rSYY5qIzUBzYTgGwtL0dL9Dfm7N1Nr6BgGmqrnKCu37cjHjbkoHxOacGYHW5x0YqC9tMTlSQ3lbO1wcDlhShBQ==\n";

/// Of the same key and message, but prehashed: what minisign makes without -l.
const QByteArray prehashedSignature =
    "untrusted comment: signature from minisign secret key\n"
    "RUST7/xO3FidZsMgGJ6vfDrlqaFcIhftUGy7WPCzhQ1C7S6mXChR1qDQogWXffTuIqF/"
    "oV0KW6uqvlpg2eky0grlKDxF8uWN"
    "sg0=\n"
    "trusted comment: timestamp:1795336057\tfile:index.txt\thashed\n"
    "OuX/rv81KKg4kOVM8uT9bKOtjKB1TTr4/cN/aSt04B06EYGDU40Am0XeGa50sM0AdvYmoHj9oltI8ggQtKh7Aw==\n";

QByteArray withCarriageReturns(QByteArray text)
{
    return text.replace("\n", "\r\n");
}

QByteArray withoutNewlineAtTheEnd(QByteArray text)
{
    text.chop(1);
    return text;
}

} // namespace

class TestSignature : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// Of RFC 8032, section 7.1.
    void publishedVectors_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("signature");
        const auto add = [](const char* name, const char* key, const char* text,
                            const char* signature) {
            row(name, QByteArray(key), QByteArray::fromHex(text), QByteArray(signature));
        };
        add("empty message", "d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a", "",
            "e5564300c360ac729086e2cc806e828a84877f1eb8e5d974d873e06522490155"
            "5fb8821590a33bacc61e39701cf9b46bd25bf5f0595bbe24655141438e7a100b");
        add("one byte", "3d4017c3e843895a92b70aa74d1b7ebc9c982ccf2ec4968cc0cd55f12af4660c", "72",
            "92a009a9f0d4cab8720e820b5f642540a2b27b5416503f8fb3762223ebdb69da"
            "085ac1e43e15996e458f3613d0f11d8c387b2eaeb4302aeeb00d291612bb0c00");
        add("two bytes", "fc51cd8e6218a1a38da47ed00230f0580816ed13ba3303ac5deb911548908025", "af82",
            "6291d657deec24024827e69c3abe01a30ce548a284743a445e3680d7db5ac3ac"
            "18ff9b538d16f290ae67f760984dc6594a7c15e9716ed28dc027beceea1ec40a");
        add("SHA-512 of abc", "ec172b93ad5e563bf4932c70e1245034c35467ef2efd4d64ebf819683467e2bf",
            "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
            "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f",
            "dc2a4459e7369633a52b1bf277839a00201009a3efbf3ecb69bea2186c26b589"
            "09351fc9ac90b3ecfdfbc7c66431e0303dca179c138ac17ad9bef1177331a704");
    }

    void publishedVectors()
    {
        QFETCH(QByteArray, key);
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, signature);
        const ReadKey read = readKey(twoLinesOf(key));
        QVERIFY2(read.key, qPrintable(read.why));
        QVERIFY(read.why.isEmpty());
        QVERIFY(read.key->hasSigned(text, twoLinesOf(signature)));
        QVERIFY(!read.key->hasSigned(text + '\0', twoLinesOf(signature)));
    }

    /// The second half of the signature of the empty message, with the order of the group added to
    /// it: the same signature to careless programs.
    void secondFormOfASignatureIsRefused()
    {
        const ReadKey read =
            readKey(twoLinesOf("d75a980182b10ab7d54bfed3c964073a0ee172f3daa62325af021a68f707511a"));
        QVERIFY(!read.key->hasSigned(
            "", twoLinesOf("e5564300c360ac729086e2cc806e828a84877f1eb8e5d974d873e06522490155"
                           "4c8c7872aa064e049dbb3013fbf29380d25bf5f0595bbe24655141438e7a101b")));
    }

    void signaturesThatCount_data()
    {
        QTest::addColumn<QByteArray>("keyFile");
        QTest::addColumn<QByteArray>("signatureFile");
        row("signify-openbsd", signifyKey, signifySignature);
        row("minisign -l", minisignKey, minisignSignature);
        row("CRLF", withCarriageReturns(signifyKey), withCarriageReturns(signifySignature));
        row("minisign with CRLF", withCarriageReturns(minisignKey),
            withCarriageReturns(minisignSignature));
        row("no newline at the end", withoutNewlineAtTheEnd(signifyKey),
            withoutNewlineAtTheEnd(signifySignature));
        row("minisign, the first two lines", minisignKey,
            minisignSignature.left(minisignSignature.indexOf("\ntrusted")));
        row("anything after the two lines", QByteArray(signifyKey + "\nmore\n"),
            QByteArray(signifySignature + QByteArray("\0\n\nmore", 7)));
        row("another comment", QByteArray(signifyKey).replace("Editor", "\xff\x1b"),
            QByteArray(signifySignature).replace("verify with", ""));
    }

    void signaturesThatCount()
    {
        QFETCH(QByteArray, keyFile);
        QFETCH(QByteArray, signatureFile);
        const ReadKey read = readKey(keyFile);
        QVERIFY2(read.key, qPrintable(read.why));
        QVERIFY(read.key->hasSigned(message, signatureFile));
    }

    void signaturesThatDoNotCount_data()
    {
        QTest::addColumn<QByteArray>("signatureFile");
        const QByteArray good = signifySignature;
        const QList<QByteArray> lines = good.split('\n');
        const QByteArray bytes = bytesOf(good);
        const auto add = [](const char* name, const QByteArray& text) {
            row(name, text);
        };

        add("empty", "");
        add("newlines", "\n\n");
        add("of another key", minisignSignature);
        add("prehashed, of another key", prehashedSignature);
        add("algorithm of a prehashed one", twoLines("ED" + bytes.mid(2)));
        add("another algorithm", twoLines("RS" + bytes.mid(2)));
        add("algorithm in small letters", twoLines("ed" + bytes.mid(2)));
        add("number of another key", twoLines("Ed" + numberOfOurKey + bytes.mid(10)));
        add("number of the key, signature of another one",
            twoLines(bytes.left(10) + bytesOf(minisignSignature).mid(10)));
        add("signature of zeros", twoLines(bytes.left(10) + QByteArray(64, '\0')));
        add("signature of ones", twoLines(bytes.left(10) + QByteArray(64, '\xff')));
        add("a byte too short", twoLines(bytes.left(73)));
        add("a byte too long", twoLines(bytes + '\0'));
        add("a key", signifyKey);
        add("the bytes alone", bytes);

        add("lines swapped", lines.at(1) + '\n' + lines.at(0) + '\n');
        add("no comment", lines.at(1) + '\n');
        add("empty comment line", '\n' + lines.at(1) + '\n');
        add("comment that does not say that it is untrusted", twoLines(bytes, "comment: ours"));
        add("trusted comment", twoLines(bytes, "trusted comment: ours"));
        add("line before", '\n' + good);
        add("line between", lines.at(0) + "\n\n" + lines.at(1) + '\n');
        add("CR alone", lines.at(0) + '\r' + lines.at(1) + '\r');
        add("two CR", lines.at(0) + '\n' + lines.at(1) + "\r\r\n");
        add("comment only", lines.at(0) + '\n');
        add("comment only, without a newline", lines.at(0));

        add("padding missing", lines.at(0) + '\n' + lines.at(1).left(99) + '\n');
        add("padding twice", lines.at(0) + '\n' + lines.at(1) + "=\n");
        add("bits after the last byte",
            lines.at(0) + '\n' + QByteArray(lines.at(1)).replace("lws=", "lwt=") + '\n');
        add("space before", lines.at(0) + "\n " + lines.at(1) + '\n');
        add("space after", lines.at(0) + '\n' + lines.at(1) + " \n");
        add("space inside", lines.at(0) + '\n' + QByteArray(lines.at(1)).insert(40, ' ') + '\n');
        add("zero byte inside",
            lines.at(0) + '\n' + QByteArray(lines.at(1)).insert(40, '\0') + '\n');
        add("base64 over two lines",
            lines.at(0) + '\n' + QByteArray(lines.at(1)).insert(40, '\n') + '\n');
        add("base64 of URLs",
            lines.at(0) + '\n' + bytes.toBase64(QByteArray::Base64UrlEncoding) + '\n');
        add("hexadecimal", lines.at(0) + '\n' + bytes.toHex() + '\n');
    }

    void signaturesThatDoNotCount()
    {
        QFETCH(QByteArray, signatureFile);
        const ReadKey read = readKey(signifyKey);
        QVERIFY(!read.key->hasSigned(message, signatureFile));
    }

    void prehashedSignatureIsRefused()
    {
        const ReadKey read = readKey(minisignKey);
        QVERIFY(read.key->hasSigned(message, minisignSignature));
        QVERIFY(!read.key->hasSigned(message, prehashedSignature));
    }

    void truncatedSignatureIsRefused()
    {
        const ReadKey read = readKey(signifyKey);
        // Without the newline it is still whole.
        const int whole = static_cast<int>(signifySignature.size()) - 1;
        for (int size = 0; size < whole; ++size)
            QVERIFY2(!read.key->hasSigned(message, signifySignature.left(size)),
                     qPrintable(QString("the first %1 bytes").arg(size)));
    }

    void everyBitOfASignatureCounts()
    {
        const ReadKey read = readKey(signifyKey);
        const QByteArray bytes = bytesOf(signifySignature);
        for (int bit = 0; bit < 8 * bytes.size(); ++bit) {
            QByteArray changed = bytes;
            changed[bit / 8] = static_cast<char>(changed.at(bit / 8) ^ (1 << bit % 8));
            QVERIFY2(!read.key->hasSigned(message, twoLines(changed)),
                     qPrintable(QString("bit %1").arg(bit)));
        }
        QVERIFY(read.key->hasSigned(message, twoLines(bytes)));
    }

    void everyBitOfAKeyCounts()
    {
        const QByteArray bytes = bytesOf(signifyKey);
        for (int bit = 0; bit < 8 * bytes.size(); ++bit) {
            QByteArray changed = bytes;
            changed[bit / 8] = static_cast<char>(changed.at(bit / 8) ^ (1 << bit % 8));
            const ReadKey read = readKey(twoLines(changed));
            QCOMPARE(read.key.has_value(), bit >= 16); // The algorithm.
            QVERIFY2(!read.key || !read.key->hasSigned(message, signifySignature),
                     qPrintable(QString("bit %1").arg(bit)));
        }
    }

    void everyByteOfTheMessageCounts()
    {
        const ReadKey read = readKey(signifyKey);
        for (int at = 0; at < message.size(); ++at) {
            QByteArray changed = message;
            changed[at] = static_cast<char>(changed.at(at) ^ 1);
            QVERIFY2(!read.key->hasSigned(changed, signifySignature),
                     qPrintable(QString("byte %1").arg(at)));
        }
        QVERIFY(!read.key->hasSigned(message + '\n', signifySignature));
        QVERIFY(!read.key->hasSigned(message.left(message.size() - 1), signifySignature));
        QVERIFY(!read.key->hasSigned("", signifySignature));
    }

    void malformedKeysAreRefused_data()
    {
        QTest::addColumn<QByteArray>("text");
        const QByteArray bytes = bytesOf(signifyKey);
        const QList<QByteArray> lines = signifyKey.split('\n');
        const auto add = [](const char* name, const QByteArray& text) {
            row(name, text);
        };
        add("empty", "");
        add("comment only", lines.at(0) + '\n');
        add("no comment", lines.at(1) + '\n');
        add("lines swapped", lines.at(1) + '\n' + lines.at(0) + '\n');
        add("another algorithm", twoLines("ED" + bytes.mid(2)));
        add("a byte too short", twoLines(bytes.left(41)));
        add("a byte too long", twoLines(bytes + '\0'));
        add("signature", signifySignature);
        add("wrong base64", QByteArray(signifyKey).replace("kn+mn", "kn-mn"));
        add("space inside", QByteArray(signifyKey).replace("kn+mn", "kn +mn"));
        add("too long", signifyKey + QByteArray(4097 - signifyKey.size(), '\n'));
        add("too long, in the comment",
            QByteArray(signifyKey).replace("Editor", QByteArray(4096, '-')));
        add("PEM", "-----BEGIN PUBLIC KEY-----\n"
                   "MCowBQYDK2VwAyEA/SaZuSvghEfuqSf6afXSjsh2dcFsuhk8paDpvIh3MVk=\n"
                   "-----END PUBLIC KEY-----\n");
    }

    void malformedKeysAreRefused()
    {
        QFETCH(QByteArray, text);
        const ReadKey read = readKey(text);
        QVERIFY(!read.key);
        QCOMPARE(read.why, QString("the file DIR/key.pub is not a public key of signify-openbsd or "
                                   "minisign"));
    }

    void longestKeyFileIsRead()
    {
        QVERIFY(readKey(signifyKey + QByteArray(4096 - signifyKey.size(), '\n')).key);
    }

    void unreadableKeysAreRefused_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("why");
        row("missing", "none.pub",
            "the key file DIR/none.pub cannot be read: No such file or directory");
        row("directory", "", "the key file DIR/ cannot be read: ");
        row("below a file", "file/key.pub",
            "the key file DIR/file/key.pub cannot be read: Not a directory");
    }

    void unreadableKeysAreRefused()
    {
        QFETCH(QString, name);
        QFETCH(QString, why);
        const TestDir dir;
        files::write(dir / "file", signifyKey);
        QString found;
        QVERIFY(!guard::PublicKey::fromFile(dir.path() + '/' + name, found));
        found.replace(dir.path(), "DIR");
        QVERIFY2(found.startsWith(why), qPrintable(found));
        QVERIFY(!found.endsWith(": "));
    }

    void realSignifyIsUnderstood()
    {
        NEEDS_PROGRAM("signify-openbsd");
        const TestDir dir;
        files::write(dir / "index.txt", message);
        for (const char* name : {"ours", "other"}) {
            mustRun({"signify-openbsd", "-G", "-n", "-p", dir / name + ".pub", "-s",
                     dir / name + ".sec"});
            mustRun({"signify-openbsd", "-S", "-s", dir / name + ".sec", "-m", dir / "index.txt",
                     "-x", dir / name + ".sig"});
        }
        checkPairs(dir);
    }

    void realMinisignIsUnderstood()
    {
        NEEDS_PROGRAM("minisign");
        const TestDir dir;
        files::write(dir / "index.txt", message);
        for (const char* name : {"ours", "other"}) {
            mustRun({"minisign", "-G", "-W", "-p", dir / name + ".pub", "-s", dir / name + ".sec"});
            mustRun({"minisign", "-S", "-l", "-W", "-s", dir / name + ".sec", "-m",
                     dir / "index.txt", "-x", dir / name + ".sig"});
        }
        checkPairs(dir);

        // Without -l it signs a hash.
        mustRun({"minisign", "-S", "-W", "-s", dir / "ours.sec", "-m", dir / "index.txt", "-x",
                 dir / "hashed.sig"});
        QVERIFY(!readKey(files::read(dir / "ours.pub"))
                     .key->hasSigned(message, files::read(dir / "hashed.sig")));
    }

private:
    /// The two pairs of keys in @p dir, ours and other, have signed the message.
    static void checkPairs(const TestDir& dir)
    {
        const ReadKey ours = readKey(files::read(dir / "ours.pub"));
        const ReadKey other = readKey(files::read(dir / "other.pub"));
        QVERIFY2(ours.key, qPrintable(ours.why));
        QVERIFY2(other.key, qPrintable(other.why));
        const QByteArray ofOurs = files::read(dir / "ours.sig");
        const QByteArray ofOther = files::read(dir / "other.sig");
        QVERIFY(ours.key->hasSigned(message, ofOurs));
        QVERIFY(other.key->hasSigned(message, ofOther));
        QVERIFY(!ours.key->hasSigned(message, ofOther));
        QVERIFY(!other.key->hasSigned(message, ofOurs));
        QVERIFY(!ours.key->hasSigned(message + ' ', ofOurs));
        QVERIFY(!readKey(files::read(dir / "ours.sec")).key);
    }
};

UPDATER_TEST_MAIN(TestSignature)
#include "tst_Signature.moc"
