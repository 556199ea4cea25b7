#pragma once

#include <string>
#include <vector>

namespace glintmark::platform {

/// The variables of the environment that name the user's languages; empty ones count as unset.
struct LanguageSettings {
    static LanguageSettings fromEnvironment();

    std::string language;    ///< LANGUAGE, a list with colons.
    std::string lcAll;       ///< LC_ALL
    std::string lcMessages;  ///< LC_MESSAGES
    std::string lang;        ///< LANG
};

/// The user's languages, best first and "en" last, as string tables name them: "pt-BR", "pt",
/// "zh-Hans". A language with a territory is followed by the bare one.
///
/// The order is that of the GNU gettext manual, "Locale Environment Variables" and "Specifying a
/// Priority List of Languages": LANGUAGE first unless the locale is C, then the first of LC_ALL,
/// LC_MESSAGES and LANG that is set.
std::vector<std::string> userLanguages(const LanguageSettings& settings);

}  // namespace glintmark::platform
