// The command line and the environment of the updater.

#include "host/guard/UpdaterRun.h"

#include "host/guard/Processes.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcessEnvironment>

namespace {

/// What the updater is to start in the end: it is there, so that the updater looks for nothing
/// else, and cannot be started. The guard starts the application.
constexpr char nothingToStart[] = "./nothing";

QProcessEnvironment environmentFor(const QString& directory)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("TMPDIR"), directory + QStringLiteral("/tmp"));
    // The relay is on this machine, and no proxy can reach it.
    for (const char* name : {"http_proxy", "HTTP_PROXY", "all_proxy", "ALL_PROXY"})
        environment.remove(QLatin1String(name));
    for (const char* name : {"no_proxy", "NO_PROXY"})
        environment.insert(QLatin1String(name), QStringLiteral("127.0.0.1"));
    return environment;
}

} // namespace

UpdaterRun::UpdaterRun(const QString& program, const QByteArray& directory)
    : m_guard(QCoreApplication::applicationPid())
{
    const QString path = QFile::decodeName(directory);
    setProgram(program);
    setWorkingDirectory(path);
    setProcessEnvironment(environmentFor(path));
    setProcessChannelMode(QProcess::ForwardedChannels);
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
    setChildProcessModifier([this] { processes::endWith(m_guard); });
#endif
}

bool UpdaterRun::start(const QString& name, const QString& publishedVersion, const QString& url)
{
    QFile nothing(QDir(workingDirectory()).filePath(QLatin1String(nothingToStart)));
    if (!nothing.open(QIODevice::WriteOnly))
        return false;
    // Any version but the published one, or the updater would end at once.
    const bool isZero = publishedVersion.trimmed() == QLatin1String("0");
    // The directory is relative, because the updater reads its command line one character per byte.
    setArguments({QStringLiteral("-u"), QStringLiteral("-n"), name, QStringLiteral("-d"),
                  QStringLiteral("clone"), QStringLiteral("-v"),
                  isZero ? QStringLiteral("1") : QStringLiteral("0"), QStringLiteral("-l"), url,
                  QStringLiteral("-x"), QLatin1String(nothingToStart)});
    QProcess::start();
    return true;
}

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
void UpdaterRun::setupChildProcess()
{
    processes::endWith(m_guard);
}
#endif
