// SHA-1 of bytes and of files.

#include "manifest/Digest.h"

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

bool isSame(const QString& one, const QString& other)
{
    return one.compare(other, Qt::CaseInsensitive) == 0;
}

} // namespace digest
