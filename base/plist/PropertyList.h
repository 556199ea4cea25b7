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

    /// Reads the XML, the binary or the old text form; the first bytes tell which. Absent if
    /// `bytes` are in none of these forms, nested too deeply or cyclic, or if the tree would become
    /// too large. The last of equal keys counts.
    static std::optional<PropertyList> parse(std::string_view bytes);

    /// The string under `key` in the dictionary at the root. The rest is checked as by `parse`, but
    /// not kept, so that a large file takes little memory beside `bytes` and time in proportion to
    /// them. Absent if there is no such string, or if memory runs out.
    static std::optional<std::string> stringInRoot(std::string_view bytes, std::string_view key);

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
