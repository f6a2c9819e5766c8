// SHA-1, the digest that manifests carry. It guards against damage in transit and on disk.
//
//   digest::sha1("abc");                      // "a9993e364706816aba3e25717850c26c9cd0d89d"
//   digest::isSame("A9993E...", "a9993e..."); // true
//
//   digest::Sha1 sha1; // Of contents that come in blocks.
//   sha1.add("a", 1);
//   sha1.add("bc", 2);
//   sha1.result();
#ifndef MANIFEST_DIGEST_H
#define MANIFEST_DIGEST_H

#include <QByteArray>
#include <QString>

#include <memory>
#include <optional>

class QFile;

namespace digest {

/// The SHA-1 of blocks of bytes.
class Sha1
{
public:
    Sha1();
    ~Sha1();
    Q_DISABLE_COPY(Sha1)

    /// Takes the next @p size bytes, at @p data.
    void add(const char* data, qint64 size);

    /// Returns the SHA-1 of all blocks as 40 lower-case hexadecimal digits. The object is used up.
    QString result();

private:
    struct State;
    const std::unique_ptr<State> m_state;
};

/// Returns the SHA-1 of @p contents, as Sha1::result() does.
QString sha1(const QByteArray& contents);

/// Returns the SHA-1 of what @p file, open for reading and at its start, holds. A file that grows
/// meanwhile counts up to the size it has at first; one of size 0 counts to its end. An error while
/// reading is not noticed: the digest is that of the bytes that came.
QString sha1OfOpenFile(QFile& file);

/// Returns the SHA-1 of the file at @p path, as sha1OfOpenFile() does, or nothing when the file
/// cannot be opened for reading. Takes the memory of a block, whatever the size of the file.
std::optional<QString> sha1OfFile(const QString& path);

/// True when @p one and @p other are the same digest; letter case does not matter.
bool isSame(const QString& one, const QString& other);

} // namespace digest

#endif // MANIFEST_DIGEST_H
