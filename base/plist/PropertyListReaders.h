#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "base/plist/PropertyList.h"

namespace glintmark {

/// Deeper nesting is refused, which ends cycles, too.
inline constexpr std::size_t maximumPropertyListDepth = 512;

inline constexpr std::string_view hexDigits = "0123456789ABCDEFabcdef";

/// The memory that one tree may take. Small values take far more memory in the tree than in the
/// file, and a binary file can use one object in many places.
class PropertyListBudget {
public:
    /// Both return false once the budget is exceeded.
    bool takeValue();
    bool takeText(std::size_t bytes);

private:
    std::size_t takenBytes_ = 0;
};

/// Each of these reads one form. Absent if `bytes` are not in that form or exceed a limit.
std::optional<PropertyList> readBinaryPropertyList(std::string_view bytes);

/// With `isUTF8` the text is UTF-8, whatever it declares; otherwise its declaration counts.
std::optional<PropertyList> readXMLPropertyList(std::string_view bytes, bool isUTF8);

/// `text` must be well-formed UTF-8.
std::optional<PropertyList> readTextPropertyList(std::string_view text);

}  // namespace glintmark
