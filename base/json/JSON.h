#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace glintmark {

/// A JSON value (RFC 8259). Strings are UTF-8.
class JSON {
public:
    using Array = std::vector<JSON>;
    using Object = std::map<std::string, JSON, std::less<>>;  ///< The last of equal keys counts.

    /// Parses one strict JSON text in UTF-8, UTF-16 or UTF-32, with or without a byte-order mark;
    /// the first bytes tell the encoding. Absent if `bytes` are anything else, are nested too
    /// deeply or would take too much memory.
    static std::optional<JSON> parse(std::string_view bytes);

    JSON() = default;
    explicit JSON(std::string value) : value_(std::move(value)) {}
    explicit JSON(Array value) : value_(std::move(value)) {}
    explicit JSON(Object value) : value_(std::move(value)) {}
    explicit JSON(bool value) : value_(value) {}
    explicit JSON(double value) : value_(value) {}

    const std::string* string() const { return std::get_if<std::string>(&value_); }
    const Array* array() const { return std::get_if<Array>(&value_); }
    const Object* object() const { return std::get_if<Object>(&value_); }

    /// The member `key` of an object. Null if this is not an object or has no such member.
    const JSON* member(std::string_view key) const;

private:
    std::variant<std::monostate, bool, double, std::string, Array, Object> value_;
};

}  // namespace glintmark
