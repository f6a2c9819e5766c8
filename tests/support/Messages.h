// Collects what goes through Qt's message handler.
#ifndef TESTS_SUPPORT_MESSAGES_H
#define TESTS_SUPPORT_MESSAGES_H

#include <QList>
#include <QPair>
#include <QString>
#include <QtGlobal>

/// Takes the place of the message handler until the end of the scope. One at a time.
class Messages
{
public:
    Messages()
    {
        s_messages.clear();
        m_previous = qInstallMessageHandler(collect);
    }
    ~Messages() { qInstallMessageHandler(m_previous); }
    Q_DISABLE_COPY(Messages)

    /// The messages so far, with their kinds.
    const QList<QPair<QtMsgType, QString>>& all() const { return s_messages; }

private:
    static void collect(QtMsgType type, const QMessageLogContext&, const QString& text)
    {
        s_messages.append({type, text});
    }

    static inline QList<QPair<QtMsgType, QString>> s_messages;
    QtMessageHandler m_previous = nullptr;
};

#endif // TESTS_SUPPORT_MESSAGES_H
