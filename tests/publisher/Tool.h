// updater-release, as a release script runs it.
//
//   Tool tool;
//   QCOMPARE(tool.run({"lint", "."}), 0);
#ifndef TESTS_PUBLISHER_TOOL_H
#define TESTS_PUBLISHER_TOOL_H

#include "tests/support/UpdaterProcess.h"

class Tool : public UpdaterProcess
{
public:
    Tool() { setProgram(UPDATER_RELEASE_EXECUTABLE); }

    /// Makes standard output a device that is always full.
    void writeToFullDevice() { setWrapper({"sh", "-c", "exec \"$@\" >/dev/full", "sh"}); }
};

#endif // TESTS_PUBLISHER_TOOL_H
