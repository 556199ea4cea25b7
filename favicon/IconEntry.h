#pragma once

#include <cstdint>

#include "base/url/URL.h"

namespace glintmark {

/// An icon link found in a page; nothing of it is downloaded yet.
struct IconEntry {
    URL url;            ///< Absolute.
    std::int64_t size;  ///< Width in pixels as declared, or the default of its kind.
    bool isAppleTouchIcon;
};

}  // namespace glintmark
