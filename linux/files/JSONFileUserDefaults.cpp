#include "linux/files/JSONFileUserDefaults.h"

#include <cerrno>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <utility>

#include "linux/files/ByteEscapes.h"
#include "linux/files/PosixFileManager.h"
#include "linux/files/WholeFile.h"

namespace glintmark::platform {

namespace {

using Value = nlohmann::ordered_json;

constexpr std::size_t maximumBytes = std::size_t{16} * 1024 * 1024;
constexpr int maximumDepth = 64;  // writing a value recurses
constexpr mode_t folderMode = 0700;
constexpr mode_t fileMode = 0600;
constexpr int indentation = 2;

/// Absent unless `text` is a JSON object of reasonable depth.
std::optional<Value> parseObject(const std::string& text) {
    bool isTooDeep = false;
    const Value::parser_callback_t checkDepth = [&](int depth, Value::parse_event_t, Value&) {
        isTooDeep = isTooDeep || depth > maximumDepth;
        return !isTooDeep;
    };
    auto value = Value::parse(text, checkDepth, false);
    if (isTooDeep || !value.is_object()) {
        return std::nullopt;
    }
    return std::optional<Value>(std::in_place, std::move(value));
}

bool isMissing(const std::string& path) {
    errno = 0;
    return !PosixFileManager().fileExists(path) && errno == ENOENT;
}

}  // namespace

struct JSONFileUserDefaults::Content {
    Value values = Value::object();
    bool mustKeepAside = false;  // the file could not be read: rename it, do not replace it
};

JSONFileUserDefaults::JSONFileUserDefaults(std::string path, Log* log)
    : path_(std::move(path)), log_(log), content_(std::make_unique<Content>()) {
    const auto text = PosixFileManager().contents(path_);
    auto values = text && text->size() <= maximumBytes ? parseObject(*text) : std::nullopt;
    if (values) {
        content_->values = *std::move(values);
    } else {
        content_->mustKeepAside = !isMissing(path_);
    }
}

JSONFileUserDefaults::~JSONFileUserDefaults() = default;

std::optional<std::vector<std::string>> JSONFileUserDefaults::stringArray(const std::string& key) {
    const auto found = content_->values.find(key);
    if (found == content_->values.end() || !found->is_array()) {
        return std::nullopt;
    }
    std::vector<std::string> strings;
    for (const auto& element : *found) {
        if (!element.is_string()) {
            return std::nullopt;
        }
        strings.push_back(unescapedFromUTF8(element.get_ref<const std::string&>()));
    }
    return strings;
}

void JSONFileUserDefaults::set(const std::string& key, const std::vector<std::string>& value) {
    auto strings = Value::array();
    for (const auto& string : value) {
        strings.push_back(escapedAsUTF8(string));
    }
    content_->values[key] = std::move(strings);
    if (!save() && log_ != nullptr) {
        const auto reason = std::generic_category().message(errno);
        log_->debug("The settings cannot be written to " + path_ + ": " + reason);
    }
}

/// False, with the reason in `errno`, if the file is as before.
bool JSONFileUserDefaults::save() {
    makeDirectories(path_.substr(0, path_.find_last_of('/')), folderMode);
    const auto file = fileBehindLinks(path_);
    if (!file) {
        return false;
    }
    if (content_->mustKeepAside) {
        const bool keptAside = std::rename(file->c_str(), (*file + ".bad").c_str()) == 0;
        if (!keptAside && errno != ENOENT) {
            return false;
        }
        content_->mustKeepAside = false;
    }
    const auto text = content_->values.dump(indentation) + "\n";
    return writeFileAtomically(*file, text, fileMode, Durability::disk);
}

}  // namespace glintmark::platform
