// Records the message boxes in the test's own process, and answers them.
//
//   MessageBoxes boxes;
//   updater.run();
//   QCOMPARE(boxes.summaries(), QStringList(MessageBoxes::damagedFile("a.txt")));
#ifndef TESTS_SUPPORT_MESSAGEBOXES_H
#define TESTS_SUPPORT_MESSAGEBOXES_H

#include <QApplication>
#include <QEvent>
#include <QList>
#include <QMessageBox>
#include <QPushButton>
#include <QString>
#include <QStringList>

#include <functional>

/// What a message box looked like while it was shown.
struct ShownBox
{
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QString title;
    QString text;
    QString informativeText;
    QMessageBox::StandardButtons standardButtons;
    int buttons = 0; ///< How many there are, standard ones or not.
    bool hasParent = false;
    bool modal = false;
    QMessageBox::StandardButton defaultButton = QMessageBox::NoButton;

    bool operator==(const ShownBox& other) const
    {
        return icon == other.icon && title == other.title && text == other.text &&
               informativeText == other.informativeText &&
               standardButtons == other.standardButtons && buttons == other.buttons &&
               hasParent == other.hasParent && modal == other.modal &&
               defaultButton == other.defaultButton;
    }

    /// Kind, title and text, such as "warning|Error|It went wrong."
    QString summary() const
    {
        const QString kind = icon == QMessageBox::Warning    ? QStringLiteral("warning")
                             : icon == QMessageBox::Critical ? QStringLiteral("critical")
                                                             : QString::number(icon);
        return kind + QLatin1Char('|') + title + QLatin1Char('|') + text;
    }
};

/// Clicks on Ok in every message box that appears until the end of the scope.
class MessageBoxes : public QObject
{
public:
    MessageBoxes() { qApp->installEventFilter(this); }
    ~MessageBoxes() override { qApp->removeEventFilter(this); }

    /// Calls @p look for every box while it is shown, before it is answered.
    void whenShown(const std::function<void()>& look) { m_look = look; }

    /// The boxes so far.
    const QList<ShownBox>& all() const { return m_boxes; }

    /// The summaries of the boxes so far.
    QStringList summaries() const
    {
        QStringList lines;
        for (const ShownBox& box : m_boxes)
            lines.append(box.summary());
        return lines;
    }

    /// The summary of the box about a download that failed with an error of QNetworkReply.
    static QString transferError(int code)
    {
        return QStringLiteral("warning|Error|An error occured while downloading the update.\n"
                              "Error code: %1")
            .arg(code);
    }

    /// The summary of the box about a file that arrived damaged, by the name that is shown.
    static QString damagedFile(const QString& name)
    {
        return QStringLiteral(
                   "critical|Error|An error occured while downloading the file \"%1\"\n\n"
                   "Aborting the update.")
            .arg(name);
    }

protected:
    bool eventFilter(QObject* object, QEvent* event) override
    {
        auto* box = qobject_cast<QMessageBox*>(object);
        // Queued, so that the event loop of the box runs by then.
        if (box && event->type() == QEvent::Show)
            QMetaObject::invokeMethod(box, [this, box] { answer(box); }, Qt::QueuedConnection);
        return false;
    }

private:
    void answer(QMessageBox* box)
    {
        m_boxes.append(looksOf(*box));
        if (m_look)
            m_look();
        if (QAbstractButton* ok = box->button(QMessageBox::Ok))
            ok->click();
        else
            box->done(0);
    }

    static ShownBox looksOf(const QMessageBox& box)
    {
        ShownBox shown;
        shown.icon = box.icon();
        shown.title = box.windowTitle();
        shown.text = box.text();
        shown.informativeText = box.informativeText();
        shown.standardButtons = box.standardButtons();
        shown.buttons = static_cast<int>(box.buttons().size());
        shown.hasParent = box.parent() != nullptr;
        shown.modal = QApplication::activeModalWidget() == &box;
        shown.defaultButton = box.standardButton(box.defaultButton());
        return shown;
    }

    QList<ShownBox> m_boxes;
    std::function<void()> m_look;
};

#endif // TESTS_SUPPORT_MESSAGEBOXES_H
