// The version check: fetches the version file.

#include "updater/Updater.h"

#include "updater/Toolkit.h"

#include <QNetworkReply>

void Updater::getVersion()
{
    QNetworkReply* reply = netManager.get(toolkit::networkRequest(QUrl(updateUrl)));
    connect(reply, SIGNAL(finished()), this, SLOT(getVersionFinished()));
}

void Updater::getVersionFinished() {}

void Updater::fileDownloadFinished() {}
