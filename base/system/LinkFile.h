#pragma once

#include <string_view>

namespace glintmark {

/// How the name of a link file ends.
inline constexpr std::string_view linkFileSuffix = ".webloc";

}  // namespace glintmark
