// Contents with every value that a byte can have.
#ifndef TESTS_UNIT_EVERYBYTE_H
#define TESTS_UNIT_EVERYBYTE_H

#include <QByteArray>

/// Returns the bytes 0 to 255.
inline QByteArray everyByte()
{
    QByteArray bytes;
    for (int value = 0; value < 256; ++value)
        bytes.append(static_cast<char>(value));
    return bytes;
}

#endif // TESTS_UNIT_EVERYBYTE_H
