// SHA-1 of bytes and of files.

#include "updater/Digest.h"

#include <QCryptographicHash>
#include <QFile>

namespace digest {

QString sha1(const QByteArray& contents)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(contents, QCryptographicHash::Sha1).toHex());
}

std::optional<QString> sha1OfFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return sha1(file.readAll());
}

} // namespace digest
