#pragma once

#include <string_view>

namespace glintmark {

/// The file name extension of link files.
inline constexpr std::string_view linkFileSuffix = ".webloc";

}  // namespace glintmark
