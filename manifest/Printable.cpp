// Escapes what cannot be printed.

#include "manifest/Printable.h"

namespace manifest {

namespace {

QString escaped(QChar character)
{
    const ushort code = character.unicode();
    return code < 0x100 ? QStringLiteral("\\x%1").arg(code, 2, 16, QLatin1Char('0'))
                        : QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
}

} // namespace

QString printable(const QString& text)
{
    QString shown;
    for (const QChar character : text) {
        // A surrogate cannot be judged on its own; keep it.
        if (character.isPrint() || character.isSurrogate())
            shown += character;
        else
            shown += escaped(character);
    }
    return shown;
}

} // namespace manifest
