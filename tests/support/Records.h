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

/// Returns the files of @p data, each as "name|sha1|size".
QStringList files(const ProgramData& data);

} // namespace records

#endif // TESTS_SUPPORT_RECORDS_H
