// The window of the example application.

#include "examples/editor/EditorWindow.h"

#include <QApplication>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStatusBar>
#include <QTimer>

#include <cstdio>

EditorWindow::EditorWindow(const HostInfo& info, bool automatic)
    : m_info(info), m_automatic(automatic), m_check(info)
{
    setWindowTitle(info.name + QLatin1Char(' ') + info.version);
    setCentralWidget(new QPlainTextEdit);
    resize(420, 240);

    connect(&m_check, &UpdateCheck::versionFound, this, &EditorWindow::offer);
    connect(&m_check, &UpdateCheck::upToDate, this, [this] {
        tell(tr("up to date"));
        quitIfAutomatic(0);
    });
    connect(&m_check, &UpdateCheck::failed, this, [this](const QString& reason) {
        tell(tr("no check: %1").arg(reason));
        quitIfAutomatic(1);
    });
    QTimer::singleShot(0, this, [this] {
        tell(tr("started"));
        m_check.start();
    });
}

void EditorWindow::offer(const QString& version, bool required, const QString& changelog)
{
    tell(tr("version %1 is published%2").arg(version, required ? tr(" and required") : QString()));
    if (!changelog.isEmpty())
        tell(tr("its changelog:\n%1").arg(changelog.trimmed()));
    if (!userAccepts(version, required, changelog))
        return;
    tell(tr("starts the update and quits"));
    m_updateStarted = m_check.startUpdate();
    if (m_updateStarted)
        QApplication::exit(0);
    else
        tell(tr("the updater does not start"));
}

bool EditorWindow::userAccepts(const QString& version, bool required, const QString& changelog)
{
    if (m_automatic)
        return true;
    QMessageBox box(this);
    box.setText(tr("%1 %2 is available.").arg(m_info.name, version));
    box.setInformativeText(changelog);
    const QPushButton* update = box.addButton(tr("Update now"), QMessageBox::AcceptRole);
    // An optional update can be postponed; a required one can only be accepted or quit.
    const QPushButton* other = required ? box.addButton(tr("Quit"), QMessageBox::RejectRole)
                                        : box.addButton(tr("Later"), QMessageBox::RejectRole);
    box.exec();
    if (required && box.clickedButton() == other)
        QApplication::exit(0);
    return box.clickedButton() == update;
}

/// Shows @p text in the window and prints it for a user at a terminal.
void EditorWindow::tell(const QString& text)
{
    statusBar()->showMessage(text);
    std::printf("%s %s: %s\n", qPrintable(m_info.name), qPrintable(m_info.version),
                qPrintable(text));
    std::fflush(stdout);
}

void EditorWindow::quitIfAutomatic(int exitCode)
{
    if (m_automatic)
        QApplication::exit(exitCode);
}
