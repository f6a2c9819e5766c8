// The shared-memory segments and semaphores of the system, as the kernel lists them (Linux).
#ifndef TESTS_SUPPORT_SYSTEMIPC_H
#define TESTS_SUPPORT_SYSTEMIPC_H

#include "tests/support/TestMain.h"

#include <optional>

namespace systemipc {

/// Gives the process and those it will start segments and semaphores of their own: in the lists,
/// too, there are no others then. To be called while the process has a single thread.
/// @return False where that is not allowed.
bool enterOwnNamespace();

/// True when enterOwnNamespace() has succeeded.
bool inOwnNamespace();

/// Returns a line for each segment and each semaphore, with its kind and its number.
QStringList everything();

/// A shared-memory segment.
struct Segment
{
    int id;
    int attached; ///< How many are attached to it.
};

/// Returns the one segment that the process @p pid has made, if any.
std::optional<Segment> segmentMadeBy(qint64 pid);

} // namespace systemipc

/// The environment of a test that looks at what is left in the system (see UPDATER_TEST_MAIN_IN).
class PrivateIpcEnvironment : public PrivateEnvironment
{
public:
    PrivateIpcEnvironment() { systemipc::enterOwnNamespace(); }
};

#endif // TESTS_SUPPORT_SYSTEMIPC_H
