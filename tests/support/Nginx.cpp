#include "tests/support/Nginx.h"

#include <QDir>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

namespace {

/// What requests() asks for to be sure that everything before it is in the log.
const char* const syncPath = "/sync-of-the-log";

/// Debian keeps nginx where an ordinary user's PATH does not lead.
QString executable()
{
    const QString inPath = QStandardPaths::findExecutable("nginx");
    return inPath.isEmpty() ? QStandardPaths::findExecutable("nginx", {"/usr/sbin", "/sbin"})
                            : inPath;
}

quint16 freePort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost);
    return server.serverPort();
}

/// A server that does nothing but serve the files below @p root.
QByteArray plainSite(const QString& root, const std::optional<ServerCertificate>& certificate,
                     quint16 port)
{
    QByteArray tls;
    if (certificate)
        tls = "    ssl_certificate " + QFile::encodeName(certificate->certificate) +
              ";\n    ssl_certificate_key " + QFile::encodeName(certificate->key) + ";\n";
    return QByteArray("  default_type application/octet-stream;\n"
                      "  server {\n"
                      "    listen 127.0.0.1:@port@ssl;\n"
                      "@tls"
                      "    root @root;\n"
                      "  }\n")
        .replace("@ssl", certificate ? " ssl" : "")
        .replace("@tls", tls)
        .replace("@root", QFile::encodeName(root))
        .replace("@port", QByteArray::number(port));
}

} // namespace

bool Nginx::isInstalled()
{
    return !executable().isEmpty();
}

Nginx::Nginx(const QString& root, const std::optional<ServerCertificate>& certificate)
    : Nginx(certificate ? "https" : "http",
            [=](quint16 port) { return plainSite(root, certificate, port); })
{
}

Nginx::Nginx(const QString& scheme, const Site& site) : m_scheme(scheme), m_site(site)
{
    // Another process may take the port between our look and nginx's start.
    for (int attempt = 0; attempt < 5; ++attempt) {
        if (start())
            return;
    }
    qFatal("test fixture: cannot start nginx: %s", m_process.readAll().constData());
}

Nginx::~Nginx()
{
    stop();
}

QString Nginx::url(const QString& path) const
{
    return QStringLiteral("%1://127.0.0.1:%2%3").arg(m_scheme).arg(m_port).arg(path);
}

QStringList Nginx::requests() const
{
    QStringList paths;
    const QList<Request> all = log();
    for (const Request& request : all)
        paths.append(request.path);
    return paths;
}

QList<Nginx::Request> Nginx::log() const
{
    // A request is logged after its reply was sent; those of one process are logged in order.
    const QString log = m_dir / "access.log";
    const int syncs = static_cast<int>(files::read(log).count(syncPath)) + 1;
    get(syncPath);
    if (!QTest::qWaitFor([&] { return files::read(log).count(syncPath) == syncs; }, 10000))
        qFatal("test fixture: nginx does not log its requests");
    const QStringList lines = QString::fromUtf8(files::read(log)).split('\n', Qt::SkipEmptyParts);
    QList<Request> requests;
    for (const QString& line : lines) {
        const QString path = line.section(' ', 2);
        if (path != syncPath)
            requests.append({path, line.section(' ', 0, 0), line.section(' ', 1, 1).toInt()});
    }
    return requests;
}

bool Nginx::start()
{
    m_port = freePort();
    files::write(m_dir / "nginx.conf",
                 files::read(QFINDTESTDATA("nginx.conf.in")).replace("@site@", m_site(m_port)));
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(executable(), {"-p", m_dir.path(), "-e", "error.log", "-c", "nginx.conf"});
    m_process.waitForStarted();
    // The answer must be this server's own: another one may have taken the port.
    const QString log = m_dir / "access.log";
    const auto answersOrEnded = [this, log] {
        return m_process.state() == QProcess::NotRunning ||
               (get(syncPath) && QFile::exists(log) && files::read(log).contains(syncPath));
    };
    if (QTest::qWaitFor(answersOrEnded, 30000) && m_process.state() == QProcess::Running)
        return true;
    stop();
    return false;
}

void Nginx::stop()
{
    m_process.terminate();
    if (!m_process.waitForFinished(10000)) {
        m_process.kill();
        m_process.waitForFinished();
    }
}

bool Nginx::get(const QString& path) const
{
    // Without TLS in any case: a server that expects TLS refuses the request, but logs its path.
    QTcpSocket socket;
    socket.connectToHost("127.0.0.1", m_port);
    if (!socket.waitForConnected(1000))
        return false;
    socket.write("GET " + path.toUtf8() + " HTTP/1.0\r\n\r\n");
    return socket.waitForReadyRead(5000);
}
