#pragma once

#include <optional>
#include <string_view>

namespace glintmark {

/// Where a candidate image came from.
enum class IconSource {
    htmlIcon,            ///< A page's link to an icon other than an Apple touch icon.
    htmlAppleTouchIcon,  ///< A page's link to an Apple touch icon.
    appleTouchIcon,      ///< An Apple touch icon at a fixed address at the site's root.
    manifest,            ///< The web app manifest.
    googleAPI,           ///< The favicon service.
    faviconICO,          ///< "/favicon.ico" at the site's root.
};

/// The label of the source.
std::string_view rawValue(IconSource source);

/// The source with that label. Absent for any other text.
std::optional<IconSource> iconSourceFromRawValue(std::string_view rawValue);

/// The name of the enumeration case, as the log shows it.
std::string_view caseName(IconSource source);

}  // namespace glintmark
