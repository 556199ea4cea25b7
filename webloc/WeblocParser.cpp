#include "webloc/WeblocParser.h"

#include "base/plist/PropertyList.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/Platform.h"

namespace glintmark {

using platform::services;

std::optional<std::string> WeblocParser::extractURL(const URL& file,
                                                    platform::FileIdentity* identity) {
    const std::string path = file.path();
    const auto bytes = services().fileManager.contents(path, identity);
    if (!bytes) {
        services().log.write("Glintmark: ファイル読み込み失敗 → " + path);
        return std::nullopt;
    }
    auto url = PropertyList::stringInRoot(*bytes, "URL");
    if (!url) {
        services().log.write("Glintmark: plistパース失敗 → " + path);
    }
    return url;
}

}  // namespace glintmark
