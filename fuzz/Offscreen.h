// The application object of the fuzz targets that have windows. Included by one source of a target.
#ifndef FUZZ_OFFSCREEN_H
#define FUZZ_OFFSCREEN_H

#include "fuzz/Harness.h"

#include <QApplication>

// Read by the leak detector: what Qt keeps to the end is no finding.
extern "C" {
const char* __lsan_default_suppressions()
{
    return "leak:libfontconfig\nleak:libQt5Gui\nleak:libQt6Gui\nleak:libqoffscreen\n";
}
const char* __lsan_default_options()
{
    return "print_suppressions=0";
}
}

namespace fuzz {

/// Makes the application, without a screen, unless it is there already.
inline void makeOffscreenApplication()
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // The platform has something to say about every message box.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    makeApplication<QApplication>();
    QApplication::setQuitOnLastWindowClosed(false);
}

} // namespace fuzz

#endif // FUZZ_OFFSCREEN_H
