#pragma once

#include <string>
#include <string_view>

namespace glintmark::platform {

/// Any bytes as UTF-8 text, reversibly, so that a path of any bytes can be stored in a JSON string.
/// Valid UTF-8 (RFC 3629) is not changed. Each other byte, and the byte zero, becomes U+0000 and
/// two lower-case hexadecimal digits. No path holds a zero byte, so U+0000 always begins an escape.
std::string escapedAsUTF8(std::string_view bytes);

/// The bytes that `escapedAsUTF8` was given. U+0000 without two digits after it is not changed.
std::string unescapedFromUTF8(std::string_view text);

}  // namespace glintmark::platform
