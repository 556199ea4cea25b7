#include "tests/Vectors.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

namespace glintmark::test {
namespace {

constexpr auto* folderVariable = "GLINTMARK_VECTORS";

constexpr std::string_view realSuffix = "_real";

/// Null if the variable is not set.
const char* chosenFolder() { return std::getenv(folderVariable); }  // NOLINT(concurrency-mt-unsafe)

std::string fileName(const std::string& name) {
    if (const char* folder = chosenFolder()) {
        return std::string(folder) + "/" + name + ".json";
    }
    const std::string checkout = GLINTMARK_SOURCE_DIR;
    const bool isReal = name.ends_with(realSuffix);
    return checkout + (isReal ? "/../shared/vectors/" : "/tests/data/vectors/") + name + ".json";
}

/// True if the file may be missing: its cases are from real sites, and the file with the other
/// cases of their form is there.
bool mayBeMissing(const std::string& name) {
    return name.ends_with(realSuffix) &&
           std::ifstream(fileName(name.substr(0, name.size() - realSuffix.size()))).good();
}

[[noreturn]] void fail(const std::string& what, const std::string& name) {
    throw std::runtime_error(what + " " + fileName(name) +
                             (chosenFolder() != nullptr
                                  ? std::string(" (") + folderVariable + " names its folder)"
                                  : std::string()));
}

std::string decodedBase64(std::string_view text) {
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint32_t bits = 0;
    unsigned bitCount = 0;
    for (const char c : text.substr(0, text.find('='))) {
        bits = bits << 6U | static_cast<std::uint32_t>(alphabet.find(c));
        bitCount += 6;
        if (bitCount >= 8) {
            bitCount -= 8;
            bytes += static_cast<char>(bits >> bitCount & 0xFFU);
        }
    }
    return bytes;
}

/// A text of many thousand characters is stored as a list of pieces. A piece is a text, or a text
/// and how often it is repeated.
std::string textOf(const nlohmann::json& value) {
    if (value.is_string()) {
        return value;
    }
    std::string text;
    for (const auto& piece : value) {
        const bool repeats = piece.is_array();
        const std::string unit = repeats ? piece.at(0) : piece;
        for (int left = repeats ? piece.at(1).get<int>() : 1; left > 0; --left) {
            text += unit;
        }
    }
    return text;
}

}  // namespace

struct VectorObject::Value {
    nlohmann::json json;
};

VectorObject::VectorObject(std::shared_ptr<const Value> value) : value_(std::move(value)) {}

bool VectorObject::has(const std::string& key) const { return value_->json.contains(key); }

std::optional<std::string> VectorObject::text(const std::string& key) const {
    const auto& value = value_->json.at(key);
    return value.is_null() ? std::nullopt : std::optional(textOf(value));
}

std::optional<VectorObject> VectorObject::object(const std::string& key) const {
    const auto& value = value_->json.at(key);
    if (value.is_null()) {
        return std::nullopt;
    }
    return VectorObject(std::make_shared<Value>(Value{value}));
}

std::string VectorObject::bytes(const std::string& key) const {
    return decodedBase64(textOf(value_->json.at(key)));
}

bool VectorObject::boolean(const std::string& key) const { return value_->json.at(key); }

std::int64_t VectorObject::integer(const std::string& key) const { return value_->json.at(key); }

std::vector<VectorObject> VectorObject::list(const std::string& key) const {
    std::vector<VectorObject> objects;
    for (const auto& value : value_->json.at(key)) {
        objects.emplace_back(std::make_shared<Value>(Value{value}));
    }
    return objects;
}

std::vector<VectorCase> loadVectors(const std::string& name) {
    std::ifstream file(fileName(name));
    if (!file) {
        if (mayBeMissing(name)) {
            return {};
        }
        fail("Cannot read", name);
    }
    const VectorObject root(
        std::make_shared<VectorObject::Value>(VectorObject::Value{nlohmann::json::parse(file)}));
    std::vector<VectorCase> cases;
    for (const auto& object : root.list("cases")) {
        cases.emplace_back(object);
    }
    if (cases.empty()) {
        fail("No cases in", name);
    }
    return cases;
}

}  // namespace glintmark::test
