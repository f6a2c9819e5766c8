// What a file or directory has besides its contents: group, mode, extended attributes (access
// control lists among them), times.
#ifndef HOST_GUARD_ATTRIBUTES_H
#define HOST_GUARD_ATTRIBUTES_H

#include <QByteArray>
#include <QString>

#include <sys/stat.h>

namespace attributes {

/// Gives the directory @p to the mode @p mode and the attributes of the directory @p from, which
/// may have disappeared. False, and @p why says what is wrong, when @p to cannot be opened.
bool copyDirectory(const QByteArray& from, const QByteArray& to, mode_t mode, QString& why);

/// Copies the file @p from to @p to, which must not exist, with all its attributes. Links are not
/// followed. False, and @p why says what is wrong, when that fails; then there may be a part of it.
bool copyFile(const QByteArray& from, const QByteArray& to, QString& why);

} // namespace attributes

#endif // HOST_GUARD_ATTRIBUTES_H
