// Compares the numbers that versions begin with.

#include "host/guard/Versions.h"

#include <QVector>

#include <algorithm>

namespace versions {

namespace {

bool isAsciiDigit(QChar character)
{
    return character >= QLatin1Char('0') && character <= QLatin1Char('9');
}

/// The numbers that @p version begins with, each without the zeros in front, so that 0 is empty.
QVector<QString> leadingNumbers(const QString& version)
{
    const QString text = version.trimmed();
    const QChar* at = text.cbegin();
    const QChar* const end = text.cend();
    if (text.startsWith(QLatin1Char('v'), Qt::CaseInsensitive))
        ++at;

    QVector<QString> numbers;
    while (at != end && isAsciiDigit(*at)) {
        const QChar* const stop = std::find_if_not(at, end, isAsciiDigit);
        at = std::find_if(at, stop, [](QChar digit) { return digit != QLatin1Char('0'); });
        numbers.append(QString(at, static_cast<int>(stop - at)));
        at = stop;
        if (at == end || *at != QLatin1Char('.'))
            break;
        ++at;
    }
    return numbers;
}

} // namespace

bool isLower(const QString& one, const QString& other)
{
    const QVector<QString> ones = leadingNumbers(one);
    const QVector<QString> others = leadingNumbers(other);
    if (ones.isEmpty() || others.isEmpty())
        return false;
    for (int part = 0; part < qMax(ones.size(), others.size()); ++part) {
        const QString number = ones.value(part);
        const QString otherNumber = others.value(part);
        // Without zeros in front, the longer number is the higher one.
        if (number.size() != otherNumber.size())
            return number.size() < otherNumber.size();
        if (number != otherNumber)
            return number < otherNumber;
    }
    return false;
}

} // namespace versions
