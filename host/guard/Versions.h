// Which of two versions is lower.
//
//   versions::isLower("1.9", "1.10");   // true
//   versions::isLower("2.0rc1", "2.0"); // false: what follows the numbers is not compared
#ifndef HOST_GUARD_VERSIONS_H
#define HOST_GUARD_VERSIONS_H

#include <QString>

namespace versions {

/// True when the numbers that @p one begins with ("2.0" of "2.0rc1") are lower than those of
/// @p other. Numbers are compared by value, of any length; missing ones are 0. A version that does
/// not begin with a number is neither lower nor higher than any other.
bool isLower(const QString& one, const QString& other);

} // namespace versions

#endif // HOST_GUARD_VERSIONS_H
