#pragma once

#include <string>
#include <vector>

namespace glintmark::platform {

/// The environment variables that name the user's languages. An empty one counts as unset.
struct LanguageSettings {
    static LanguageSettings fromEnvironment();

    std::string language;    ///< LANGUAGE, a list separated by colons.
    std::string lcAll;       ///< LC_ALL
    std::string lcMessages;  ///< LC_MESSAGES
    std::string lang;        ///< LANG
};

/// The user's languages, best first and "en" last, as string tables are named: "pt-BR", "pt",
/// "zh-Hans". After a language with a territory comes the language without it.
///
/// The order is that of the GNU gettext manual, "Locale Environment Variables" and "Specifying a
/// Priority List of Languages": first LANGUAGE, unless the locale is C; then the first of LC_ALL,
/// LC_MESSAGES and LANG that is set.
std::vector<std::string> userLanguages(const LanguageSettings& settings);

}  // namespace glintmark::platform
