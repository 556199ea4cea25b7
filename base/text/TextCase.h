#pragma once

#include <string>
#include <string_view>

namespace glintmark {

/// `text` (well-formed UTF-8) in lower case, each character by itself, by the simple mappings of
/// Unicode and without regard to a language.
std::string lowercased(std::string_view text);

}  // namespace glintmark
