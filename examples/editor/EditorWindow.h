// The window of the example application.
#ifndef EXAMPLES_EDITOR_EDITORWINDOW_H
#define EXAMPLES_EDITOR_EDITORWINDOW_H

#include <UpdaterHost/UpdateCheck.h>

#include <QMainWindow>

/// Shows the installed version, looks for another one at start and offers to install it.
///
/// In automatic mode it answers for the user: it accepts an update, and quits when there is none.
class EditorWindow : public QMainWindow
{
    Q_OBJECT

public:
    EditorWindow(const HostInfo& info, bool automatic);

    /// True once the updater was started to install another version.
    bool isUpdateStarted() const { return m_updateStarted; }

private:
    void offer(const QString& version, bool required, const QString& changelog);
    bool userAccepts(const QString& version, bool required, const QString& changelog);
    void tell(const QString& text);
    void quitIfAutomatic(int exitCode);

    const HostInfo m_info;
    const bool m_automatic;
    UpdateCheck m_check;
    bool m_updateStarted = false;
};

#endif // EXAMPLES_EDITOR_EDITORWINDOW_H
