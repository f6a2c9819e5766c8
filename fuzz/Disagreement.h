// How the fuzz targets report what they find.
#ifndef FUZZ_DISAGREEMENT_H
#define FUZZ_DISAGREEMENT_H

#include "tests/support/Records.h"

#include <cstdio>
#include <cstdlib>

namespace fuzz {

/// Prints @p what and @p details and ends the process, by which libFuzzer knows the input for a
/// finding.
[[noreturn]] inline void disagree(const char* what, const QString& details)
{
    std::fprintf(stderr, "%s\n%s\n", what, qPrintable(details));
    std::abort();
}

/// As above unless @p actual and @p expected are the same. @p input belongs to the report.
inline void compare(const char* what, const QString& actual, const QString& expected,
                    const QString& input)
{
    if (actual == expected && actual.isNull() == expected.isNull())
        return;
    disagree(what, QStringLiteral("actual   \"%1\"\nexpected \"%2\"\nof       \"%3\"")
                       .arg(records::escaped(actual), records::escaped(expected),
                            records::escaped(input)));
}

} // namespace fuzz

#endif // FUZZ_DISAGREEMENT_H
