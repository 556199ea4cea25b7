#pragma once

#include <cstdint>

#include "base/url/URL.h"

namespace glintmark {

/// An icon link in a page. Its image has not been downloaded.
struct IconEntry {
    URL url;            ///< Absolute.
    std::int64_t size;  ///< The declared width in pixels, or the default of its kind.
    bool isAppleTouchIcon;
};

}  // namespace glintmark
