#pragma once

#include <string_view>

#include "base/url/URL.h"

namespace glintmark::test {

/// The URL that `text` is. Any other text ends the test program.
inline URL url(std::string_view text) { return URL::parse(text).value(); }

}  // namespace glintmark::test
