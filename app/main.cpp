// Program entry: picks the run mode from the options and turns its result into the exit status.

#include "app/Options.h"
#include "updater/Updater.h"

#include <QApplication>

#include <algorithm>
#include <initializer_list>

namespace {

enum class Mode { None, BuildVersionFile, CheckVersionOnly, Update };

/// The mode the flags ask for; of several, the first in this order.
Mode requestedMode()
{
    if (fBuildVerFile)
        return Mode::BuildVersionFile;
    if (fCheckVerOnly)
        return Mode::CheckVersionOnly;
    if (fDoUpdate)
        return Mode::Update;
    return Mode::None;
}

bool allGiven(std::initializer_list<const QString*> options)
{
    return std::none_of(options.begin(), options.end(),
                        [](const QString* option) { return option->isEmpty(); });
}

/// True when every option that @p mode cannot do without has a value.
bool requiredOptionsGiven(Mode mode)
{
    switch (mode) {
    case Mode::BuildVersionFile:
        return allGiven({&fProgramName, &fProgramBaseDir, &fProgramVersion});
    case Mode::CheckVersionOnly:
        return allGiven({&fProgramName, &fProgramVersion, &fUpdateUrl, &fSharedMemKey});
    case Mode::Update:
        return allGiven({&fProgramName, &fProgramBaseDir, &fProgramVersion, &fUpdateUrl});
    case Mode::None:
        break;
    }
    return false;
}

/// True where Qt would end the process because there is no display, as on a build machine.
bool isDisplayMissing()
{
#ifdef Q_OS_LINUX
    return qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") &&
           qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
#else
    return false;
#endif
}

} // namespace

int main(int argc, char** argv)
{
    const bool offscreen = isDisplayMissing();
    if (offscreen)
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (offscreen)
        qunsetenv("QT_QPA_PLATFORM"); // The program that an update starts makes its own choice.
    // Only an explicit exit ends a run: closing the progress dialog must not.
    QApplication::setQuitOnLastWindowClosed(false);

    if (!processArgs(argc, argv))
        return 1;
    const Mode mode = requestedMode();
    if (!requiredOptionsGiven(mode))
        return 1;

    Updater updater(fProgramName, fProgramBaseDir, fProgramVersion, fUpdateUrl, fSharedMemKey,
                    fProgramExe);
    if (mode == Mode::BuildVersionFile) {
        QString versionFilePath;
        return updater.buildVersionFile(&versionFilePath, fRequiredUpd, fChangelogFile) ? 0 : 1;
    }
    if (!updater.start(fCheckVerOnly))
        return 0;
    return QApplication::exec();
}
