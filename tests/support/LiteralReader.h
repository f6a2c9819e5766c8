// The manifest reader in its plainest form, step by step, with a copy at every step: what the
// product's reader is compared with. It shares no code with the product and takes quadratic time.
#ifndef TESTS_SUPPORT_LITERALREADER_H
#define TESTS_SUPPORT_LITERALREADER_H

#include "manifest/ProgramData.h"

namespace literal {

/// Does what manifest::tagValue() does.
QString tagValue(const QString& tag, QString& source, bool remove, bool* found);

/// Does what manifest::read() does.
bool read(const QString& rootTag, const QString& xml, ProgramData& data);

} // namespace literal

#endif // TESTS_SUPPORT_LITERALREADER_H
