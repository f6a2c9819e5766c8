// Untrusted text on its way to a terminal or into a log.
//
//   manifest::printable("a\x1b[2Jb\n"); // "a\x1b[2Jb\x0a", with backslashes
#ifndef MANIFEST_PRINTABLE_H
#define MANIFEST_PRINTABLE_H

#include <QString>

namespace manifest {

/// Escapes every unprintable character in @p text, line breaks included, as \xNN or \uNNNN. File
/// names are untrusted and could contain terminal control sequences.
QString printable(const QString& text);

} // namespace manifest

#endif // MANIFEST_PRINTABLE_H
