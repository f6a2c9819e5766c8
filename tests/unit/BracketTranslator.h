// A translation that shows which texts are translated.
#ifndef TESTS_UNIT_BRACKETTRANSLATOR_H
#define TESTS_UNIT_BRACKETTRANSLATOR_H

#include <QCoreApplication>
#include <QStringList>
#include <QTranslator>

/// Puts the updater's texts in brackets until the end of the scope, and records what is looked up.
class BracketTranslator : public QTranslator
{
public:
    BracketTranslator() { QCoreApplication::installTranslator(this); }
    ~BracketTranslator() override { QCoreApplication::removeTranslator(this); }

    bool isEmpty() const override { return false; }

    QString translate(const char* context, const char* text, const char*, int) const override
    {
        m_asked.append(QStringLiteral("%1: %2").arg(context, text));
        if (qstrcmp(context, "Updater") != 0)
            return QString();
        return '[' + QString::fromUtf8(text) + ']';
    }

    /// The texts looked up so far, each as "context: text".
    const QStringList& asked() const { return m_asked; }

private:
    mutable QStringList m_asked;
};

#endif // TESTS_UNIT_BRACKETTRANSLATOR_H
