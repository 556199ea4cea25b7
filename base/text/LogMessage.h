#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace glintmark {

inline constexpr std::size_t maximumLogFieldWidth = 1024;  ///< For width and precision.

/// Longer lines are cut, between two characters.
inline constexpr std::size_t maximumLogLineBytes = std::size_t{64} * 1024;

/// Expands `message` as a printf-like format string with an empty argument list.
///
/// "%%" becomes "%". A complete directive (flags, width, precision, length, one of the letters
/// `d D i u U x X o O c C s S p @ f F e E g G a A n`) stands for an argument of zero: integers
/// print 0 in their base, floating point zero, `%s`, `%S` and `%@` print "(null)", `%p` prints
/// "0x0", `%c`, `%C` and `%n` print nothing. Flags, width and precision apply; a star for either
/// number means zero. Anything else after a percent sign is copied. Never calls a variadic
/// function.
std::string formatLogMessage(std::string_view message);

}  // namespace glintmark
