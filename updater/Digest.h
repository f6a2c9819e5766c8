// SHA-1, the digest that manifests carry. It guards against damage in transit and on disk.
#ifndef UPDATER_DIGEST_H
#define UPDATER_DIGEST_H

#include <QByteArray>
#include <QString>

#include <optional>

namespace digest {

/// Returns the SHA-1 of @p contents as 40 lower-case hexadecimal digits.
QString sha1(const QByteArray& contents);

/// Returns the SHA-1 of the file at @p path, as sha1() does, or nothing when the file cannot be
/// opened for reading. The file is held in memory whole. An error while reading is not noticed:
/// the digest is that of the bytes that came.
std::optional<QString> sha1OfFile(const QString& path);

} // namespace digest

#endif // UPDATER_DIGEST_H
