#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace glintmark {

/// A property list read into a tree. Strings are UTF-8.
class PropertyList {
public:
    using Array = std::vector<PropertyList>;
    using Dictionary = std::map<std::string, PropertyList, std::less<>>;

    /// A value that the program does not read. Only its kind is kept.
    enum class Other { null, boolean, number, date, data, uid };

    /// Larger files are refused. A tree may take twenty times the memory of its text.
    static constexpr std::size_t maximumBytes = std::size_t{4} * 1024 * 1024;

    /// Reads the XML, the binary or the old text form; the first bytes tell which. Absent if
    /// `bytes` are in none of these forms, too large, nested too deeply, cyclic, or if entities or
    /// shared objects would make the tree too large. Time and memory are bounded. The last of equal
    /// keys counts.
    static std::optional<PropertyList> parse(std::string_view bytes);

    explicit PropertyList(std::string value) : value_(std::move(value)) {}
    explicit PropertyList(Array value) : value_(std::move(value)) {}
    explicit PropertyList(Dictionary value) : value_(std::move(value)) {}
    explicit PropertyList(Other value) : value_(value) {}

    const std::string* string() const { return std::get_if<std::string>(&value_); }
    const Array* array() const { return std::get_if<Array>(&value_); }
    const Dictionary* dictionary() const { return std::get_if<Dictionary>(&value_); }

private:
    std::variant<std::string, Array, Dictionary, Other> value_;
};

}  // namespace glintmark
