// The command line of updater-guard.
//
//   GuardOptions options;
//   const std::optional<int> status = readOptions(QCoreApplication::arguments(), options);
//   if (status)
//       return *status; // A text was printed: help, or what is wrong.
#ifndef HOST_GUARD_GUARDOPTIONS_H
#define HOST_GUARD_GUARDOPTIONS_H

#include "host/guard/Signature.h"

#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVector>

#include <optional>

/// What the host asks for.
struct GuardOptions
{
    QString name;             ///< The program's name, as in the version file.
    QString dir;              ///< The installation, as given.
    QString installedVersion; ///< The host's own version.
    QString url;              ///< Of the version file.
    QString exe;              ///< What is started in the end.
    QString updater;          ///< Absolute path.
    qint64 waitFor = 0;       ///< A process that must end first; 0 for none.
    int waitSeconds = 60;
    QVector<guard::PublicKey> publicKeys; ///< Empty: nothing need be signed.
    bool allowDowngrade = false;
    QStringList executable; ///< Patterns of files that must be executable.
    bool removeObsolete = false;
    int jobs = 6;
    int stallSeconds = 60;
    bool relaunch = true;
    QString stateDir; ///< Empty: the default.
};

/// Reads @p arguments, the program's name first, into @p options.
/// @return The exit status when there is nothing to do: 0 after --help and --version, which are
///         printed, 2 after wrong usage, which is explained on standard error. Otherwise nothing.
std::optional<int> readOptions(const QStringList& arguments, GuardOptions& options);

#endif // HOST_GUARD_GUARDOPTIONS_H
