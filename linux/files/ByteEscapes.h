#pragma once

#include <string>
#include <string_view>

namespace glintmark::platform {

/// Any bytes as UTF-8 text, reversibly, so that a path of any name can stand in a JSON string.
/// Valid UTF-8 (RFC 3629) stands for itself. A byte that is part of none, and the byte zero, become
/// U+0000 and two lower-case hexadecimal digits; no path holds a zero byte, so nothing else does.
std::string escapedAsUTF8(std::string_view bytes);

/// The bytes that `escapedAsUTF8` was given. U+0000 without two digits behind it stands for itself.
std::string unescapedFromUTF8(std::string_view text);

}  // namespace glintmark::platform
