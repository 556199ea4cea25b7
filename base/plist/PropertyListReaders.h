#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "base/plist/PropertyList.h"

namespace glintmark {

/// Deeper nesting is refused, which ends cycles as well.
inline constexpr std::size_t maximumPropertyListDepth = 512;

/// What one tree may occupy in memory. Small values take far more room in the tree than in the
/// file, and in a binary file one object can stand in many places.
class PropertyListBudget {
public:
    /// Both are false when that is more than there is.
    bool takeValue();
    bool takeText(std::size_t bytes);

private:
    std::size_t takenBytes_ = 0;
};

/// Each reads one form. Absent when `bytes` are not in that form or beyond a limit.
std::optional<PropertyList> readBinaryPropertyList(std::string_view bytes);

/// `isUTF8` says that the text is UTF-8 whatever it declares, else the declaration counts.
std::optional<PropertyList> readXMLPropertyList(std::string_view bytes, bool isUTF8);

/// `text` must be well-formed UTF-8.
std::optional<PropertyList> readTextPropertyList(std::string_view text);

}  // namespace glintmark
