// The files that the guard keeps from run to run.

#include "host/guard/State.h"

#include "manifest/Digest.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

constexpr char reportName[] = "last-update.json";
constexpr char versionFileName[] = "installed.txt";
constexpr qint64 longestRecord = 67108864; // As much as is fetched.

QString defaultDirectory(const QByteArray& directory)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/updater-guard/") + digest::sha1(directory);
}

} // namespace

State::State(const QString& stateDirectory, const QByteArray& directory)
    : m_directory(stateDirectory.isEmpty() ? defaultDirectory(directory) : stateDirectory)
{
}

void State::write(const Outcome& outcome) const
{
    const QJsonObject report{
        {QStringLiteral("outcome"), outcome.outcome},
        {QStringLiteral("installedVersion"), outcome.installed},
        {QStringLiteral("publishedVersion"), outcome.published},
        {QStringLiteral("reason"), outcome.reason},
        {QStringLiteral("bytesDownloaded"), outcome.downloaded},
        {QStringLiteral("bytesReused"), outcome.reused},
        {QStringLiteral("seconds"), outcome.seconds},
    };
    save(QLatin1String(reportName), QJsonDocument(report).toJson());
}

QByteArray State::recordedVersionFile() const
{
    QFile file(QDir(m_directory).filePath(QLatin1String(versionFileName)));
    return file.open(QIODevice::ReadOnly) ? file.read(longestRecord) : QByteArray();
}

void State::recordVersionFile(const QByteArray& versionFile) const
{
    save(QLatin1String(versionFileName), versionFile);
}

/// Replaces a file as a whole, so that a kill leaves the old one or the new one.
void State::save(const QString& name, const QByteArray& contents) const
{
    if (!QDir().mkpath(m_directory))
        return;
    QSaveFile file(QDir(m_directory).filePath(name));
    if (file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size())
        file.commit();
}
