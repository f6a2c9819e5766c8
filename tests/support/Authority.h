// Certificate authorities, and the command under which a process trusts one.
//
//   const Authority authority("Authority");
//   const Nginx nginx(dir.path(), authority.issueNamed("server", "IP:127.0.0.1"));
//   const TrustStore trusted(authority);
//   UNDER_TRUST(command, trusted);
#ifndef TESTS_SUPPORT_AUTHORITY_H
#define TESTS_SUPPORT_AUTHORITY_H

#include "tests/support/Command.h"
#include "tests/support/Files.h"
#include "tests/support/Nginx.h"

#include <optional>

/// A certificate authority in a directory of its own, made with openssl.
class Authority
{
public:
    explicit Authority(const QString& name);

    /// The path of its own certificate.
    QString certificate() const { return m_dir / "ca.pem"; }

    /// Makes a server's certificate that is valid for @p host, such as "IP:127.0.0.1", from @p
    /// begin to @p end.
    ServerCertificate issue(const QString& host, const char* begin, const char* end) const;

    /// Makes a server's certificate with @p commonName that is valid now. @p hosts are its
    /// alternative names, such as "IP:127.0.0.1,DNS:localhost"; when empty it has none.
    ServerCertificate issueNamed(const QString& commonName, const QString& hosts) const;

private:
    ServerCertificate issue(const QString& commonName, const QString& hosts, const char* begin,
                            const char* end) const;

    const QString m_name;
    const TestDir m_dir;
};

/// Makes single processes trust one authority instead of those that the system trusts.
class TrustStore
{
public:
    explicit TrustStore(const Authority& authority);

    /// The command under which a program trusts the authority and no other; nothing where that is
    /// impossible.
    std::optional<QStringList> command() const;

private:
    const TestDir m_dir;
};

#endif // TESTS_SUPPORT_AUTHORITY_H
