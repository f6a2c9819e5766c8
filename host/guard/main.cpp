// updater-guard: makes an update of the installation it is given atomic, signed and verified.

#include "host/guard/Guard.h"
#include "host/guard/GuardOptions.h"

#include <QCoreApplication>

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    GuardOptions options;
    if (const std::optional<int> status = readOptions(QCoreApplication::arguments(), options))
        return *status;
    return Guard(options).run();
}
