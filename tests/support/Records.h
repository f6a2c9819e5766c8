// Manifest records as tests compare and print them.
#ifndef TESTS_SUPPORT_RECORDS_H
#define TESTS_SUPPORT_RECORDS_H

#include "manifest/ProgramData.h"

#include <QStringList>

namespace records {

/// Tells whether the two records hold the same values in every field of every file.
bool same(const ProgramData& one, const ProgramData& other);

/// Returns @p text in printable ASCII: every other character, the quote and the backslash are
/// written as in a C++ string literal.
QString escaped(const QString& text);

/// Returns every field of @p data, escaped, one line each.
QString described(const ProgramData& data);

/// Says how @p actual, read from @p text, differs from @p expected; nothing when it does not.
QString difference(const ProgramData& actual, const ProgramData& expected,
                   const QByteArray& text = QByteArray());

/// Returns the files of @p data, each as "name|sha1|size".
QStringList files(const ProgramData& data);

} // namespace records

/// Compares every field with QVERIFY2, and prints all of them when they differ. The arguments are
/// those of records::difference().
#define COMPARE_RECORDS(...)                                                                       \
    do {                                                                                           \
        const QString different = records::difference(__VA_ARGS__);                                \
        QVERIFY2(different.isEmpty(), qPrintable(different));                                      \
    } while (false)

#endif // TESTS_SUPPORT_RECORDS_H
