// A real web server for a release: nginx, started by the test with a configuration of its own.
#ifndef TESTS_SUPPORT_NGINX_H
#define TESTS_SUPPORT_NGINX_H

#include "tests/support/Files.h"

#include <QProcess>

#include <functional>
#include <optional>

/// What a server shows of itself, as paths of PEM files.
struct ServerCertificate
{
    QString certificate;
    QString key;
};

/// Serves the files below one directory on 127.0.0.1, on a free port, until the end of the scope.
/// Everything nginx writes is in a temporary directory.
class Nginx
{
public:
    /// True when nginx is installed.
    static bool isInstalled();

    /// Serves the directory @p root, over https when there is a @p certificate. The test program
    /// ends when nginx cannot be started.
    explicit Nginx(const QString& root,
                   const std::optional<ServerCertificate>& certificate = std::nullopt);

    /// Serves over @p scheme what a configuration says: @p site returns the inside of "http" for a
    /// port of 127.0.0.1.
    using Site = std::function<QByteArray(quint16 port)>;
    Nginx(const QString& scheme, const Site& site);

    ~Nginx();
    Q_DISABLE_COPY(Nginx)

    /// Returns the URL of @p path, which begins with "/".
    QString url(const QString& path) const;

    /// Returns the paths asked for so far, in order, as the client wrote them. A client that breaks
    /// off the TLS handshake has asked for none.
    QStringList requests() const;

    /// One request as nginx logs it.
    struct Request
    {
        QString path;
        QString protocol; ///< Such as "HTTP/1.1".
        int connection;   ///< Its number, which no other connection has.
    };

    /// Returns the same requests with what nginx knows of them.
    QList<Request> log() const;

    quint16 port() const { return m_port; }

    qint64 pid() const { return m_process.processId(); }

private:
    bool start();
    void stop();
    bool get(const QString& path) const;

    const QString m_scheme;
    const Site m_site;
    TestDir m_dir;
    quint16 m_port = 0;
    QProcess m_process;
};

#endif // TESTS_SUPPORT_NGINX_H
