// What a test needs of the machine. Where it is missing, the test is skipped and says so.
//
//   NEEDS_NGINX();
//   NEEDS_PROGRAM("openssl");
//   UNDER_PERMISSIONS(command); // A variable with the command of that name.
//   scene.updater.setWrapper(*command);
#ifndef TESTS_SUPPORT_NEEDS_H
#define TESTS_SUPPORT_NEEDS_H

#include "tests/support/Authority.h"
#include "tests/support/Mounts.h"
#include "tests/support/Nginx.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Sockets.h"
#include "tests/support/SystemCalls.h"

#include <QStandardPaths>
#include <QTest>

#define SKIP_UNLESS(condition, message)                                                            \
    do {                                                                                           \
        if (!(condition))                                                                          \
            QSKIP(message);                                                                        \
    } while (false)

#define NEEDS_NGINX() SKIP_UNLESS(Nginx::isInstalled(), "nginx is not installed")

#define NEEDS_PROGRAM(name)                                                                        \
    SKIP_UNLESS(!QStandardPaths::findExecutable(name).isEmpty(), name " is not installed")

/// Where calls can be recorded with SystemCalls.
#define NEEDS_STRACE()                                                                             \
    SKIP_UNLESS(SystemCalls::canBeTraced(), "strace is not installed, or may not trace")

#define NEEDS_IPV6() SKIP_UNLESS(sockets::hasIpv6(), "there is no ::1 here")

/// Makes file permissions count in this thread until the end of the scope.
#define ENFORCE_PERMISSIONS()                                                                      \
    const EnforcedPermissions enforcedPermissions;                                                 \
    SKIP_UNLESS(enforcedPermissions.active(), NO_PERMISSIONS)

/// Defines @p command, a std::optional: the command under which file permissions count for the
/// updater.
#define UNDER_PERMISSIONS(command)                                                                 \
    const std::optional<QStringList> command = commandUnderPermissions();                          \
    SKIP_UNLESS(command, NO_PERMISSIONS)

/// The same for a command that trusts the authority of @p trustStore and no other.
#define UNDER_TRUST(command, trustStore)                                                           \
    const std::optional<QStringList> command = (trustStore).command();                             \
    SKIP_UNLESS(command, NO_MOUNTS)

/// The same for mounts::commandWithTmpfs() with the arguments that follow.
#define UNDER_TMPFS(command, ...)                                                                  \
    const std::optional<QStringList> command = mounts::commandWithTmpfs(__VA_ARGS__);              \
    SKIP_UNLESS(command, NO_MOUNTS)

#endif // TESTS_SUPPORT_NEEDS_H
