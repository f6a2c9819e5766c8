// What a test does on an X server.
#ifndef TESTS_SUPPORT_X11_H
#define TESTS_SUPPORT_X11_H

#include "tests/support/Needs.h"

#include <QProcess>
#include <QString>
#include <QStringList>

/// Runs @p command on the X server and returns what it prints.
inline QString x11(const QString& command, const QStringList& arguments)
{
    QProcess process;
    process.start(command, arguments);
    process.waitForFinished();
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

#define NEEDS_X11()                                                                                \
    do {                                                                                           \
        SKIP_UNLESS(!qEnvironmentVariableIsEmpty("DISPLAY"),                                       \
                    "there is no X server (DISPLAY is not set); run this under xvfb-run");         \
        NEEDS_PROGRAM("xdotool");                                                                  \
        NEEDS_PROGRAM("xprop");                                                                    \
    } while (false)

#endif // TESTS_SUPPORT_X11_H
