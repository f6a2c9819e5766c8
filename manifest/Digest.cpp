// SHA-1 of bytes and of files. Nettle does the work where it is installed, because it uses the SHA
// instructions of a processor, and Qt does not; -DUPDATER_SHA1_OF_QT leaves it to Qt all the same.

#include "manifest/Digest.h"

#include <QFile>

#include <limits>

#if defined(__has_include) && !defined(UPDATER_SHA1_OF_QT)
#if __has_include(<nettle/sha1.h>)
#define UPDATER_SHA1_OF_NETTLE
#endif
#endif

#ifdef UPDATER_SHA1_OF_NETTLE
#include <nettle/sha1.h>
#else
#include <QCryptographicHash>
#endif

namespace {

/// What is read at once: little enough for a processor's cache, enough for few system calls.
constexpr qint64 blockSize = 262144;

} // namespace

namespace digest {

#ifdef UPDATER_SHA1_OF_NETTLE

struct Sha1::State
{
    sha1_ctx context;
};

Sha1::Sha1() : m_state(std::make_unique<State>())
{
    sha1_init(&m_state->context);
}

void Sha1::add(const char* data, qint64 size)
{
    sha1_update(&m_state->context, static_cast<size_t>(size),
                reinterpret_cast<const uint8_t*>(data));
}

QString Sha1::result()
{
    QByteArray bytes(SHA1_DIGEST_SIZE, Qt::Uninitialized);
    sha1_digest(&m_state->context, SHA1_DIGEST_SIZE, reinterpret_cast<uint8_t*>(bytes.data()));
    return QString::fromLatin1(bytes.toHex());
}

#else

struct Sha1::State
{
    QCryptographicHash hash{QCryptographicHash::Sha1};
};

Sha1::Sha1() : m_state(std::make_unique<State>()) {}

void Sha1::add(const char* data, qint64 size)
{
    // In blocks, because Qt 5 counts with an int.
    for (qint64 done = 0; done < size; done += blockSize) {
        const auto count = static_cast<int>(qMin(size - done, blockSize));
        m_state->hash.addData(QByteArray::fromRawData(data + done, count));
    }
}

QString Sha1::result()
{
    return QString::fromLatin1(m_state->hash.result().toHex());
}

#endif

Sha1::~Sha1() = default;

QString sha1(const QByteArray& contents)
{
    Sha1 sha1;
    sha1.add(contents.constData(), contents.size());
    return sha1.result();
}

QString sha1OfOpenFile(QFile& file)
{
    const qint64 size = file.size();
    qint64 left = size > 0 ? size : std::numeric_limits<qint64>::max();
    QByteArray block(static_cast<int>(qMin(left, blockSize)), Qt::Uninitialized);
    Sha1 sha1;
    while (left > 0) {
        const qint64 count = file.read(block.data(), qMin(left, blockSize));
        if (count <= 0)
            break;
        sha1.add(block.constData(), count);
        left -= count;
    }
    return sha1.result();
}

std::optional<QString> sha1OfFile(const QString& path)
{
    QFile file(path);
    // Qt's own buffer would only be one more copy.
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return std::nullopt;
    return sha1OfOpenFile(file);
}

bool isSame(const QString& one, const QString& other)
{
    return one.compare(other, Qt::CaseInsensitive) == 0;
}

} // namespace digest
