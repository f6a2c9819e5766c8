// What a test needs of the machine. Where it is missing, the test is skipped and says so.
//
//   void initTestCase()
//   {
//       NEEDS_NGINX();
//       NEEDS_PROGRAM("openssl");
//   }
#ifndef TESTS_SUPPORT_NEEDS_H
#define TESTS_SUPPORT_NEEDS_H

#include "tests/support/Nginx.h"
#include "tests/support/Sockets.h"

#include <QStandardPaths>
#include <QTest>

#define NEEDS_NGINX()                                                                              \
    do {                                                                                           \
        if (!Nginx::isInstalled())                                                                 \
            QSKIP("nginx is not installed");                                                       \
    } while (false)

#define NEEDS_PROGRAM(name)                                                                        \
    do {                                                                                           \
        if (QStandardPaths::findExecutable(name).isEmpty())                                        \
            QSKIP(name " is not installed");                                                       \
    } while (false)

#define NEEDS_IPV6()                                                                               \
    do {                                                                                           \
        if (!sockets::hasIpv6())                                                                   \
            QSKIP("there is no ::1 here");                                                         \
    } while (false)

#endif // TESTS_SUPPORT_NEEDS_H
