// Runs a test function, row by row, in a process of its own, for code with state that lasts as long
// as the process.
#ifndef TESTS_SUPPORT_OWNPROCESS_H
#define TESTS_SUPPORT_OWNPROCESS_H

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

namespace ownprocess {

/// True in a process that was started for one row of one test function.
bool isOne();

/// Starts this test program for the test function @p test, or "FUNCTION:ROW", alone, with
/// @p variables in addition to its own environment, under the command @p wrapper if there is one,
/// and waits for its end.
/// @return Nothing when the row passed there, else what the process has printed.
QByteArray failureOf(const QString& test, const QMap<QString, QString>& variables = {},
                     const QStringList& wrapper = {});

/// Starts this test program for the current function and row alone and waits for its end.
/// @return Nothing when the row passed there, else what the process has printed.
QByteArray failureOfCurrentRow();

} // namespace ownprocess

/// To be the first line of a test function: what follows runs in a process of its own.
#define IN_OWN_PROCESS()                                                                           \
    do {                                                                                           \
        if (!ownprocess::isOne()) {                                                                \
            const QByteArray failure = ownprocess::failureOfCurrentRow();                          \
            QVERIFY2(failure.isNull(), failure.constData());                                       \
            return;                                                                                \
        }                                                                                          \
    } while (false)

#endif // TESTS_SUPPORT_OWNPROCESS_H
