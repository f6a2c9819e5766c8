// SHA-1, the digest that manifests carry. It guards against damage in transit and on disk.
//
//   digest::sha1("abc");                      // "a9993e364706816aba3e25717850c26c9cd0d89d"
//   digest::isSame("A9993E...", "a9993e..."); // true
#ifndef MANIFEST_DIGEST_H
#define MANIFEST_DIGEST_H

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

/// True when @p one and @p other are the same digest; letter case does not matter.
bool isSame(const QString& one, const QString& other);

} // namespace digest

#endif // MANIFEST_DIGEST_H
