#include "linux/bundle/EmbeddedBundle.h"

#include <algorithm>
#include <utility>

namespace glintmark::platform {

namespace {

constexpr auto informationFile = "Info.plist";
constexpr std::string_view tableSuffix = ".strings";

/// A string table is the inside of a dictionary in the old text form.
std::optional<PropertyList> parse(const resources::EmbeddedFile& file) {
    if (file.name.ends_with(tableSuffix)) {
        return PropertyList::parse("{" + std::string(file.bytes) + "}");
    }
    return PropertyList::parse(file.bytes);
}

const std::string* stringFor(const PropertyList::Dictionary& dictionary, const std::string& key) {
    const auto found = dictionary.find(key);
    return found == dictionary.end() ? nullptr : found->second.string();
}

}  // namespace

EmbeddedBundle::EmbeddedBundle(std::vector<std::string> languages,
                               std::span<const resources::EmbeddedFile> files)
    : languages_(std::move(languages)), files_(files) {}

std::optional<std::string> EmbeddedBundle::infoString(const std::string& key) {
    const std::lock_guard lock(mutex_);
    const std::string* value = stringFor(read(informationFile), key);
    return value != nullptr ? std::optional(*value) : std::nullopt;
}

std::string EmbeddedBundle::localizedString(const std::string& key) {
    const std::lock_guard lock(mutex_);
    for (const auto& language : languages_) {
        if (const auto* text = stringFor(read(language + ".lproj/Localizable.strings"), key)) {
            return *text;
        }
    }
    return key;
}

const EmbeddedBundle::Dictionary& EmbeddedBundle::read(const std::string& name) {
    const auto known = read_.find(name);
    if (known != read_.end()) {
        return known->second;
    }
    const auto file = std::find_if(files_.begin(), files_.end(),
                                   [&](const auto& candidate) { return candidate.name == name; });
    Dictionary dictionary;
    if (file != files_.end()) {
        if (const auto list = parse(*file); list && list->dictionary() != nullptr) {
            dictionary = *list->dictionary();
        }
    }
    return read_.emplace(name, std::move(dictionary)).first->second;
}

}  // namespace glintmark::platform
