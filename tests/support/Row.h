// Rows of a data-driven test, written as calls.
#ifndef TESTS_SUPPORT_ROW_H
#define TESTS_SUPPORT_ROW_H

#include <QString>
#include <QTest>

/// Adds a row to the table of the current test: @p values are its cells, in the order of the
/// columns. A string literal is a QString; for another type of column give a value of that type.
template <typename... Values> void row(const char* name, const Values&... values)
{
    (QTest::newRow(name) << ... << values);
}

template <typename... Values> void row(const QString& name, const Values&... values)
{
    row(qPrintable(name), values...);
}

#endif // TESTS_SUPPORT_ROW_H
