#include "webloc/WeblocParser.h"

#include "base/plist/PropertyList.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/Platform.h"

namespace glintmark {

using platform::services;

namespace {

/// The string under `key` in the dictionary `root`; null when there is none.
const std::string* stringUnder(std::string_view key, const PropertyList& root) {
    const auto* const dictionary = root.dictionary();
    if (dictionary == nullptr) {
        return nullptr;
    }
    const auto entry = dictionary->find(key);
    return entry != dictionary->end() ? entry->second.string() : nullptr;
}

}  // namespace

std::optional<std::string> WeblocParser::extractURL(const URL& file,
                                                    platform::FileIdentity* identity) {
    const std::string path = file.path();
    // One byte more than the parser accepts, so that a huge file is refused, not truncated.
    const auto bytes =
        services().fileManager.contents(path, PropertyList::maximumBytes + 1, identity);
    if (!bytes) {
        services().log.write("Glintmark: ファイル読み込み失敗 → " + path);
        return std::nullopt;
    }
    const auto root = PropertyList::parse(*bytes);
    const std::string* const url = root ? stringUnder("URL", *root) : nullptr;
    if (url == nullptr) {
        services().log.write("Glintmark: plistパース失敗 → " + path);
        return std::nullopt;
    }
    return *url;
}

}  // namespace glintmark
