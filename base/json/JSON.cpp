#include "base/json/JSON.h"

#include <cstddef>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/text/TextEncoding.h"

namespace glintmark {
namespace {

constexpr std::size_t maximumDepth = 512;

/// The limit for a parsed text in memory. A text of small values takes thirty times its size.
constexpr std::size_t maximumTreeBytes = std::size_t{64} * 1024 * 1024;

/// An array element, counted twice, since an array may reserve twice the memory that it uses.
constexpr std::size_t elementBytes = 2 * sizeof(JSON);

/// A member's node in the map: three links, a colour, the key and the value.
constexpr std::size_t memberBytes = 4 * sizeof(void*) + sizeof(std::string) + sizeof(JSON);

/// The encoding of a text without a byte-order mark, found from the positions of its zero bytes:
/// the first characters are ASCII (RFC 4627, section 3). Null for UTF-8.
const char* unmarkedEncoding(std::string_view bytes) {
    using namespace std::string_view_literals;
    if (bytes.starts_with("\0\0\0"sv)) {
        return "UTF-32BE";
    }
    if (bytes.substr(0, 4).find("\0\0\0"sv) == 1) {
        return "UTF-32LE";
    }
    if (bytes.starts_with('\0')) {
        return "UTF-16BE";
    }
    if (bytes.substr(0, 2).ends_with('\0')) {
        return "UTF-16LE";
    }
    return nullptr;
}

/// Builds the tree from the parser's events. An event that returns false ends the parsing.
class TreeBuilder {
public:
    // NOLINTBEGIN(readability-identifier-naming): the parser's names
    bool null() { return add(JSON()); }
    bool boolean(bool value) { return add(JSON(value)); }
    bool number_integer(std::int64_t value) { return add(JSON(static_cast<double>(value))); }
    bool number_unsigned(std::uint64_t value) { return add(JSON(static_cast<double>(value))); }
    bool number_float(double value, const std::string&) { return add(JSON(value)); }
    bool string(std::string& value) { return spend(value.size()) && add(JSON(std::move(value))); }
    bool binary(nlohmann::json::binary_t&) { return false; }  // not in JSON texts
    bool start_object(std::size_t) { return begin(JSON::Object()); }
    bool end_object() { return end(); }
    bool start_array(std::size_t) { return begin(JSON::Array()); }
    bool end_array() { return end(); }
    bool key(std::string& value) {
        open_.back().key = std::move(value);
        return spend(memberBytes + open_.back().key.size());
    }
    static bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) {
        return false;
    }
    // NOLINTEND(readability-identifier-naming)

    JSON takeRoot() { return std::move(root_); }

private:
    /// An object or array that has not ended yet.
    struct Open {
        std::variant<JSON::Array, JSON::Object> container;
        std::string key;  ///< Of the member whose value comes next.
    };

    bool spend(std::size_t bytes) {
        spentBytes_ += bytes;
        return spentBytes_ <= maximumTreeBytes;
    }

    bool add(JSON value) {
        if (open_.empty()) {
            root_ = std::move(value);
            return true;
        }
        auto& [container, key] = open_.back();
        if (auto* members = std::get_if<JSON::Object>(&container)) {
            members->insert_or_assign(std::move(key), std::move(value));
            return true;
        }
        std::get<JSON::Array>(container).push_back(std::move(value));
        return spend(elementBytes);
    }

    template <typename Container>
    bool begin(Container container) {
        open_.push_back({std::move(container), {}});
        return open_.size() <= maximumDepth;
    }

    bool end() {
        auto container = std::move(open_.back().container);
        open_.pop_back();
        return std::visit([this](auto& values) { return add(JSON(std::move(values))); }, container);
    }

    std::vector<Open> open_;
    JSON root_;
    std::size_t spentBytes_ = 0;
};

}  // namespace

std::optional<JSON> JSON::parse(std::string_view bytes) {
    const auto mark = byteOrderMark(bytes);
    const char* const encoding = mark ? mark->encoding : unmarkedEncoding(bytes);
    bytes.remove_prefix(mark ? mark->bytes : 0);
    std::optional<std::string> decoded;
    if (encoding != nullptr) {
        decoded = decodedText(bytes, encoding);
        if (!decoded) {
            return std::nullopt;
        }
        bytes = *decoded;
    }
    // The parser takes a NUL for the end and skips a byte-order mark. A JSON text may contain
    // neither.
    if (bytes.find('\0') != std::string_view::npos || bytes.starts_with("\xEF\xBB\xBF")) {
        return std::nullopt;
    }
    TreeBuilder builder;
    if (!nlohmann::json::sax_parse(bytes.begin(), bytes.end(), &builder)) {
        return std::nullopt;
    }
    return builder.takeRoot();
}

const JSON* JSON::member(std::string_view key) const {
    const auto* members = object();
    if (members == nullptr) {
        return nullptr;
    }
    const auto found = members->find(key);
    return found == members->end() ? nullptr : &found->second;
}

}  // namespace glintmark
