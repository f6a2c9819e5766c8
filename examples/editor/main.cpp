// Editor: a small application that looks for a new version of itself at start, shows what is new,
// and has the updater install it.
//
// It is in Contents/MacOS of its bundle, beside the updater. Contents/Resources/about.ini says what
// it is:
//
//   name=Editor
//   version=1.0
//   url=https://updates.example/editor/index.txt
//
// With --auto it accepts every update by itself. EDITOR_AUTO in the environment does the same, and
// the Editor that an update starts inherits it.

#include "examples/editor/EditorWindow.h"

#include <QApplication>
#include <QDir>
#include <QSettings>

namespace {

HostInfo hostInfo()
{
    const QDir macOs(QCoreApplication::applicationDirPath());
    const QSettings about(macOs.filePath(QStringLiteral("../Resources/about.ini")),
                          QSettings::IniFormat);
    HostInfo info;
    info.updater = macOs.filePath(QStringLiteral("updater"));
    info.name = about.value(QStringLiteral("name")).toString();
    info.version = about.value(QStringLiteral("version")).toString();
    info.baseDir = QDir::cleanPath(macOs.filePath(QStringLiteral("../..")));
    info.url = about.value(QStringLiteral("url")).toString();
    info.exe = QCoreApplication::applicationFilePath();
    return info;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    if (QCoreApplication::arguments().contains(QStringLiteral("--auto")))
        qputenv("EDITOR_AUTO", "1");
    EditorWindow window(hostInfo(), qEnvironmentVariableIsSet("EDITOR_AUTO"));
    window.show();
    return QApplication::exec();
}
