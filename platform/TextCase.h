#pragma once

#include <string>
#include <string_view>

namespace glintmark::platform {

/// `text` (UTF-8) in lower case by the full mappings of Unicode, without regard to a language.
std::string lowercased(std::string_view text);

}  // namespace glintmark::platform
