// The main function of every test: a private environment, the application object, the test.
#ifndef TESTS_SUPPORT_TESTMAIN_H
#define TESTS_SUPPORT_TESTMAIN_H

#include "tests/support/Files.h"

#include <QApplication>
#include <QDir>
#include <QTest>

/// Gives the process temporary, runtime, configuration and data directories of its own, removed at
/// the end, and the offscreen platform unless another is set. So tests can run side by side, do not
/// depend on the user's configuration of Qt, and leave no files. Construct it before the
/// application object.
class PrivateEnvironment
{
public:
    PrivateEnvironment()
    {
        files::makeDirectory(m_dir.filePath("tmp"));
        files::makeDirectory(m_dir.filePath("run"));
        files::makeDirectory(m_dir.filePath("config"));
        files::makeDirectory(m_dir.filePath("data"));
        QFile::setPermissions(m_dir.filePath("run"),
                              QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("TMPDIR", QFile::encodeName(m_dir.filePath("tmp")));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_dir.filePath("run")));
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_dir.filePath("config")));
        qputenv("XDG_CONFIG_DIRS", QFile::encodeName(m_dir.filePath("config")));
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_dir.filePath("data")));
        for (const char* name : {"QT_LOGGING_RULES", "QT_LOGGING_CONF", "QT_MESSAGE_PATTERN"})
            qunsetenv(name);
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
    }

private:
    QTemporaryDir m_dir;
};

#define UPDATER_TEST_MAIN(TestClass) UPDATER_TEST_MAIN_IN(PrivateEnvironment, TestClass)

#define UPDATER_TEST_MAIN_IN(Environment, TestClass)                                               \
    int main(int argc, char** argv)                                                                \
    {                                                                                              \
        const Environment environment;                                                             \
        const QApplication app(argc, argv);                                                        \
        TestClass test;                                                                            \
        return QTest::qExec(&test, argc, argv);                                                    \
    }

#endif // TESTS_SUPPORT_TESTMAIN_H
