#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist/PropertyList.h"
#include "platform/Bundle.h"
#include "resources/EmbeddedFiles.h"

namespace glintmark::platform {

/// The information dictionary and the string tables that are built into the program. Each is parsed
/// when it is first needed.
class EmbeddedBundle : public Bundle {
public:
    /// `languages` are the names of the tables to search, in this order.
    explicit EmbeddedBundle(
        std::vector<std::string> languages,
        std::span<const resources::EmbeddedFile> files = resources::embeddedFiles());

    std::optional<std::string> infoString(const std::string& key) override;
    std::string localizedString(const std::string& key) override;

private:
    using Dictionary = PropertyList::Dictionary;

    const Dictionary& read(const std::string& name);

    const std::vector<std::string> languages_;
    const std::span<const resources::EmbeddedFile> files_;
    std::mutex mutex_;
    std::map<std::string, Dictionary> read_;  ///< By file name; empty if the file is missing.
};

}  // namespace glintmark::platform
