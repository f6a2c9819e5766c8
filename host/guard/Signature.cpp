// Signatures of version files: the text around them is taken apart here, Nettle does the
// arithmetic.

#include "host/guard/Signature.h"

#include <QFile>

#include <nettle/eddsa.h>

namespace guard {

namespace {

constexpr int mostBytesOfKeyFile = 4096;

/// The bytes before the key or the signature: "Ed", which is the algorithm, and the key's number.
constexpr int algorithmSize = 2;
constexpr int numberSize = 8;

/// What the second line of a key file or a signature file says.
struct SignifyValue
{
    QByteArray number; ///< Of the key.
    QByteArray value;  ///< The key or the signature.
};

/// Reads @p text, whose value has @p valueSize bytes.
std::optional<SignifyValue> signifyValue(const QByteArray& text, int valueSize)
{
    const auto commentEnd = text.indexOf('\n');
    if (commentEnd < 0 || !text.startsWith("untrusted comment: "))
        return std::nullopt;
    const auto begin = commentEnd + 1;
    const auto end = text.indexOf('\n', begin);
    QByteArray line = text.mid(begin, end < 0 ? -1 : end - begin);
    if (line.endsWith('\r'))
        line.chop(1);

    const QByteArray bytes =
        *QByteArray::fromBase64Encoding(line, QByteArray::AbortOnBase64DecodingErrors);
    // Written back, it is the same: Qt accepts missing padding and bits that mean nothing.
    if (bytes.toBase64() != line || !bytes.startsWith("Ed") ||
        bytes.size() != algorithmSize + numberSize + valueSize)
        return std::nullopt;
    return SignifyValue{bytes.mid(algorithmSize, numberSize),
                        bytes.mid(algorithmSize + numberSize)};
}

const uint8_t* unsignedBytes(const QByteArray& bytes)
{
    return reinterpret_cast<const uint8_t*>(bytes.constData());
}

} // namespace

PublicKey::PublicKey(const QByteArray& number, const QByteArray& point)
    : m_number(number), m_point(point)
{
}

std::optional<PublicKey> PublicKey::fromFile(const QString& path, QString& why)
{
    QFile file(path);
    QByteArray text;
    if (file.open(QIODevice::ReadOnly))
        text = file.read(mostBytesOfKeyFile + 1);
    if (file.error() != QFile::NoError) {
        why = QStringLiteral("the key file %1 cannot be read: %2").arg(path, file.errorString());
        return std::nullopt;
    }
    const std::optional<SignifyValue> key = signifyValue(text, ED25519_KEY_SIZE);
    if (!key || text.size() > mostBytesOfKeyFile) {
        why = QStringLiteral("the file %1 is not a public key of signify-openbsd or minisign")
                  .arg(path);
        return std::nullopt;
    }
    return PublicKey(key->number, key->value);
}

bool PublicKey::hasSigned(const QByteArray& message, const QByteArray& signatureFile) const
{
    const std::optional<SignifyValue> signature =
        signifyValue(signatureFile, ED25519_SIGNATURE_SIZE);
    return signature && signature->number == m_number &&
           ed25519_sha512_verify(unsignedBytes(m_point), static_cast<size_t>(message.size()),
                                 unsignedBytes(message), unsignedBytes(signature->value)) == 1;
}

} // namespace guard
