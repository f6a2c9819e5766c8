// File systems that only the updater sees, mounted in a namespace of its own (Linux).
//
//   const auto command = mounts::commandWithTmpfs(scene.tmpDir, "size=64k");
//   if (!command)
//       QSKIP(NO_MOUNTS);
//   scene.updater.setWrapper(*command);
#ifndef TESTS_SUPPORT_MOUNTS_H
#define TESTS_SUPPORT_MOUNTS_H

#include <QString>
#include <QStringList>

#include <optional>

/// The message with which tests are skipped that need one of the commands below.
#define NO_MOUNTS "file systems cannot be mounted here, not even in a private namespace"

namespace mounts {

/// Returns the command under which a program may mount file systems that nobody else sees; nothing
/// where that is not allowed.
std::optional<QStringList> commandInNamespace();

/// Returns the command under which a program sees a file system of its own, a tmpfs made with
/// @p mountOptions, at the directory @p point, with what was in that directory. With @p copy, the
/// contents are copied there when the program has ended. Nothing where that is not allowed.
std::optional<QStringList> commandWithTmpfs(const QString& point, const QString& mountOptions,
                                            const QString& copy = QString());

/// Returns the command under which a program sees the directory @p source at @p point; nothing
/// where that is not allowed.
std::optional<QStringList> commandWithDirectory(const QString& source, const QString& point);

} // namespace mounts

#endif // TESTS_SUPPORT_MOUNTS_H
