// Tables with too many rows for every run: a sample is run each time, all of them now and then.
#ifndef TESTS_SUPPORT_SAMPLE_H
#define TESTS_SUPPORT_SAMPLE_H

#include <QtGlobal>

/// True when every row is wanted: "scripts/test --long" sets UPDATER_TEST_EVERYTHING.
inline bool everyRowIsWanted()
{
    return qEnvironmentVariableIsSet("UPDATER_TEST_EVERYTHING");
}

#endif // TESTS_SUPPORT_SAMPLE_H
