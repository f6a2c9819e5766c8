// A web server for one client, the updater: hands out the version file that the guard has checked,
// and the files of it that are downloaded and verified, each as soon as it is there.
//
//   Relay relay(versionFile, files, downloads);
//   QString why;
//   if (relay.listen(why))
//       startUpdater(relay.url());
#ifndef HOST_GUARD_RELAY_H
#define HOST_GUARD_RELAY_H

#include "manifest/ProgramData.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QVector>

#include <memory>

class Downloads;

class Relay : public QObject
{
    Q_OBJECT

public:
    /// @param files those of the version file; each is served at the path that the updater asks for
    /// @param downloads must outlive this object
    Relay(const QByteArray& versionFile, const QVector<ProgramFile>& files, Downloads& downloads);
    ~Relay() override;

    /// Begins to listen on 127.0.0.1, at a free port. @return False when there is none; then @p why
    /// says what is wrong.
    bool listen(QString& why);

    /// Of the version file. The path begins with 128 random bits in hexadecimal digits, so that
    /// other users of the machine cannot guess it.
    QString url() const;

    /// True when every file of @p downloads was asked for and sent whole at least once.
    /// (An updater that was cancelled has not got that far.)
    bool allWereFetched() const;

private:
    class Server;
    std::unique_ptr<Server> m_server;
};

#endif // HOST_GUARD_RELAY_H
