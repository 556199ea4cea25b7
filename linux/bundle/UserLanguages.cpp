#include "linux/bundle/UserLanguages.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

namespace glintmark::platform {

namespace {

constexpr auto lastResort = "en";

std::string variable(const char* name) {
    const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): no thread sets it
    return value != nullptr ? value : "";
}

/// Territories and the script of Chinese with traditional characters.
constexpr std::array traditionalChinese{"TW", "HK", "MO", "Hant"};

void add(std::vector<std::string>& languages, std::string language) {
    if (std::find(languages.begin(), languages.end(), language) == languages.end()) {
        languages.push_back(std::move(language));
    }
}

/// `locale` is "language[_territory][.codeset][@modifier]". A hyphen may replace the underscore.
void addLocale(std::vector<std::string>& languages, std::string_view locale) {
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX") {
        return;
    }
    const auto mark = locale.find_first_of("_-");
    const std::string language(locale.substr(0, mark));
    const std::string territory(mark == std::string_view::npos ? "" : locale.substr(mark + 1));
    if (language == "zh") {
        const bool traditional =
            std::any_of(traditionalChinese.begin(), traditionalChinese.end(),
                        [&](std::string_view name) { return territory.starts_with(name); });
        add(languages, traditional ? "zh-Hant" : "zh-Hans");
        return;
    }
    if (!territory.empty()) {
        add(languages, language + "-" + territory);
    }
    add(languages, language);
}

}  // namespace

LanguageSettings LanguageSettings::fromEnvironment() {
    return {variable("LANGUAGE"), variable("LC_ALL"), variable("LC_MESSAGES"), variable("LANG")};
}

std::vector<std::string> userLanguages(const LanguageSettings& settings) {
    std::string locale;
    for (const auto* candidate : {&settings.lcAll, &settings.lcMessages, &settings.lang}) {
        if (locale.empty()) {
            locale = *candidate;
        }
    }
    std::vector<std::string> languages;
    if (locale != "C" && locale != "POSIX") {
        std::string_view list = settings.language;
        while (!list.empty()) {
            const auto colon = list.find(':');
            addLocale(languages, list.substr(0, colon));
            list.remove_prefix(colon == std::string_view::npos ? list.size() : colon + 1);
        }
    }
    addLocale(languages, locale);
    add(languages, lastResort);
    return languages;
}

}  // namespace glintmark::platform
