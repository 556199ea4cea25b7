#include "tests/doubles/FakeUserDefaults.h"

#include <utility>

namespace glintmark::doubles {

std::optional<std::vector<std::string>> FakeUserDefaults::stringArray(const std::string& key) {
    const auto value = values_.find(key);
    if (value == values_.end() || value->second.array() == nullptr) {
        return std::nullopt;
    }
    std::vector<std::string> strings;
    for (const auto& element : *value->second.array()) {
        if (element.string() == nullptr) {
            return std::nullopt;
        }
        strings.push_back(*element.string());
    }
    return strings;
}

void FakeUserDefaults::set(const std::string& key, const std::vector<std::string>& value) {
    ++writes_;
    JSON::Array array;
    for (const auto& string : value) {
        array.emplace_back(string);
    }
    values_.insert_or_assign(key, JSON(std::move(array)));
}

void FakeUserDefaults::store(const std::string& key, JSON value) {
    values_.insert_or_assign(key, std::move(value));
}

}  // namespace glintmark::doubles
