// Release trees and installations, as the publisher and the user have them.
#ifndef TESTS_SUPPORT_RELEASE_H
#define TESTS_SUPPORT_RELEASE_H

#include "tests/support/Files.h"

#include <QMap>

class HttpServer;

/// A tree as its contents: path below the top, bytes.
using Tree = QMap<QString, QByteArray>;

namespace release {

/// Writes the files of @p tree below @p dir, which is created if it is missing.
void lay(const Tree& tree, const QString& dir);

/// Reads the tree below @p dir.
Tree read(const QString& dir);

/// Describes the tree in @p dir with the real updater's build mode.
void describe(const QString& dir, const QString& name, const QString& version,
              const QStringList& furtherOptions = {});

/// Puts the tree in @p dir, with its version file, onto @p server, below @p path.
void serve(const QString& dir, HttpServer& server, const QString& path);

/// Says in a line for each what is different in @p actual; nothing when the trees are equal.
QStringList differences(const Tree& actual, const Tree& expected);

} // namespace release

#endif // TESTS_SUPPORT_RELEASE_H
