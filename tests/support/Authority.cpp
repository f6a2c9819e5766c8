#include "tests/support/Authority.h"

#include "tests/support/Command.h"
#include "tests/support/Mounts.h"

#include <QFile>

namespace {

/// Where Qt looks for the authorities that the system trusts.
const char* const systemAuthorities = "/etc/ssl/certs";

} // namespace

Authority::Authority(const QString& name) : m_name(name)
{
    files::write(m_dir / "index", "");
    files::write(m_dir / "serial", "01\n");
    files::write(m_dir / "ca.conf", QByteArray("[ca]\n"
                                               "default_ca = own\n"
                                               "[own]\n"
                                               "database = @dir/index\n"
                                               "serial = @dir/serial\n"
                                               "new_certs_dir = @dir\n"
                                               "default_md = sha256\n"
                                               "unique_subject = no\n"
                                               "policy = any\n"
                                               "copy_extensions = copy\n"
                                               "[any]\n"
                                               "commonName = supplied\n")
                                        .replace("@dir", QFile::encodeName(m_dir.path())));
    mustRun({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
             "-nodes", "-days", "2", "-subj", "/CN=" + name, "-keyout", m_dir / "ca.key", "-out",
             certificate()});
}

ServerCertificate Authority::issue(const QString& host, const char* begin, const char* end) const
{
    return issue(m_name + " server", host, begin, end);
}

ServerCertificate Authority::issueNamed(const QString& commonName, const QString& hosts) const
{
    return issue(commonName, hosts, "20200101000000Z", "20480101000000Z");
}

ServerCertificate Authority::issue(const QString& commonName, const QString& hosts,
                                   const char* begin, const char* end) const
{
    const QString request = m_dir / "server.csr";
    const ServerCertificate server{m_dir / "server.pem", m_dir / "server.key"};
    QStringList command{"openssl",
                        "req",
                        "-new",
                        "-newkey",
                        "ec",
                        "-pkeyopt",
                        "ec_paramgen_curve:prime256v1",
                        "-nodes",
                        "-subj",
                        "/CN=" + commonName,
                        "-keyout",
                        server.key,
                        "-out",
                        request};
    if (!hosts.isEmpty())
        command << "-addext"
                << "subjectAltName=" + hosts;
    mustRun(command);
    mustRun({"openssl", "ca", "-batch", "-notext", "-config", m_dir / "ca.conf", "-cert",
             certificate(), "-keyfile", m_dir / "ca.key", "-startdate", begin, "-enddate", end,
             "-in", request, "-out", server.certificate});
    return server;
}

TrustStore::TrustStore(const Authority& authority)
{
    // OpenSSL finds a certificate by a file name that is a digest of its subject.
    QFile::copy(authority.certificate(), m_dir / "trusted.pem");
    mustRun({"openssl", "rehash", m_dir.path()});
}

std::optional<QStringList> TrustStore::command() const
{
    return mounts::commandWithDirectory(m_dir.path(), systemAuthorities);
}
