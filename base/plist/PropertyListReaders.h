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

    /// For a text that was taken, but does not stay in the tree.
    void giveTextBack(std::size_t bytes) { takenBytes_ -= bytes; }
    void giveValueBack();

private:
    std::size_t takenBytes_ = 0;
};

/// What of a property list is kept in its tree.
struct KeptValues {
    /// If present, only the string under this key in the dictionary at the root. All else is
    /// checked and dropped: arrays, nested dictionaries and texts are empty in the tree.
    std::optional<std::string_view> onlyKey;

    bool isAll() const { return !onlyKey; }
};

/// Each of these reads one form. Absent if `bytes` are not in that form or exceed a limit.
std::optional<PropertyList> readBinaryPropertyList(std::string_view bytes, const KeptValues& kept);

/// With `isUTF8` the text is UTF-8, whatever it declares; otherwise its declaration counts.
std::optional<PropertyList> readXMLPropertyList(std::string_view bytes, bool isUTF8,
                                                const KeptValues& kept);

/// `text` must be well-formed UTF-8.
std::optional<PropertyList> readTextPropertyList(std::string_view text, const KeptValues& kept);

}  // namespace glintmark
