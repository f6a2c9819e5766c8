// Viewer: looks for another version of itself, and has it installed at once.
//
//   viewer INSTALLED_VERSION URL

#include <UpdaterHost/UpdateCheck.h>

#include <QCoreApplication>
#include <QDir>
#include <QVersionNumber>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const QDir macOs(QCoreApplication::applicationDirPath());
    HostInfo info;
    info.updater = macOs.filePath("updater");
    info.name = "Viewer";
    info.version = arguments.value(1);
    info.baseDir = QDir::cleanPath(macOs.filePath("../.."));
    info.url = arguments.value(2);
    info.exe = QCoreApplication::applicationFilePath();

    UpdateCheck check(info);
    check.setTimeLimit(20000);
    check.setAccepts([&info](const QString& version) {
        return QVersionNumber::fromString(version) > QVersionNumber::fromString(info.version);
    });
    QObject::connect(&check, &UpdateCheck::versionFound, &app,
                     [&check](const QString& version, bool required, const QString& changelog) {
                         // Here an application with windows asks its user.
                         std::printf("found %s%s\n%s", qPrintable(version),
                                     required ? ", required" : "", qPrintable(changelog));
                         QCoreApplication::exit(check.startUpdate() ? 0 : 1);
                     });
    QObject::connect(&check, &UpdateCheck::upToDate, &app, [] {
        std::puts("up to date");
        QCoreApplication::exit(0);
    });
    QObject::connect(&check, &UpdateCheck::failed, &app, [](const QString& reason) {
        std::printf("no check: %s\n", qPrintable(reason));
        QCoreApplication::exit(1);
    });
    check.start();
    return QCoreApplication::exec();
}
