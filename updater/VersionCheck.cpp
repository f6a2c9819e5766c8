// The version check: fetches the version file, reports it to the host, and decides whether an
// update follows.

#include "updater/Updater.h"

#include "manifest/ManifestText.h"
#include "updater/Requests.h"

#include <QCoreApplication>
#include <QNetworkReply>

void Updater::getVersion()
{
    QNetworkReply* reply = netManager.get(requests::requestFor(QUrl(updateUrl)));
    connect(reply, SIGNAL(finished()), this, SLOT(getVersionFinished()));
}

void Updater::getVersionFinished()
{
    // The transfer's error is ignored on purpose: the body decides, even that of an error page.
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    const QByteArray body = reply->readAll();
    reply->deleteLater();

    if (!xmlToProgramData(programName, manifest::textFromBytes(body), programData)) {
        writeVersionToSHM(QStringLiteral("ERROR"), false);
        QCoreApplication::exit(1);
        // Going on is intended: the report below replaces this one, and the exit status of what
        // follows replaces 1. Hosts take an empty version for a version file that was unreadable.
    }
    writeVersionToSHM(programData.version, programData.required);
    writeChangelogFile(programData);

    const bool upToDate = programVersion.compare(programData.version, Qt::CaseInsensitive) == 0;
    if (checkOnly || upToDate) {
        QCoreApplication::exit(0);
        return;
    }
    prepareDownloads();
    downloadNewProgramData();
}
