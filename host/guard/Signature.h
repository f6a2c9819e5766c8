// Signatures of version files: Ed25519, in the files that "signify-openbsd" and "minisign -l"
// write.
//
//   QString why;
//   const std::optional<PublicKey> key = PublicKey::fromFile("editor.pub", why);
//   if (key && key->hasSigned(versionFile, signatureFile))
//       ...
#ifndef HOST_GUARD_SIGNATURE_H
#define HOST_GUARD_SIGNATURE_H

#include <QByteArray>
#include <QString>

#include <optional>

namespace guard {

/// A key that release signatures are checked with.
class PublicKey
{
public:
    /// Reads the key in the file at @p path: a comment line, then a line of base64.
    /// @param why receives what is wrong when there is no result
    static std::optional<PublicKey> fromFile(const QString& path, QString& why);

    /// True when @p signatureFile, the contents of a signature file, holds a signature of
    /// @p message by this key. Lines after the second are ignored. False for whatever cannot be
    /// read as a signature.
    bool hasSigned(const QByteArray& message, const QByteArray& signatureFile) const;

private:
    PublicKey(const QByteArray& number, const QByteArray& point);

    QByteArray m_number; ///< Eight bytes that tell keys apart.
    QByteArray m_point;  ///< The key itself, 32 bytes.
};

} // namespace guard

#endif // HOST_GUARD_SIGNATURE_H
