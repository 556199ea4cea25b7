#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/bundle/UserLanguages.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAreArray;

using Languages = std::vector<std::string>;

TEST(UserLanguagesTest, FollowTheSettingsInOrder) {
    struct Case {
        LanguageSettings settings;  ///< LANGUAGE, LC_ALL, LC_MESSAGES, LANG
        Languages languages;
    };
    const std::vector<Case> table{
        {{"", "", "", ""}, {"en"}},
        {{"", "", "", "C"}, {"en"}},
        {{"", "", "", "C.UTF-8"}, {"en"}},
        {{"", "", "", "en_US.UTF-8"}, {"en-US", "en"}},
        {{"", "", "", "ja_JP.UTF-8"}, {"ja-JP", "ja", "en"}},
        {{"", "", "", "de_DE@euro"}, {"de-DE", "de", "en"}},
        {{"", "", "", "de_DE.ISO-8859-15@euro"}, {"de-DE", "de", "en"}},
        {{"", "", "", "fr"}, {"fr", "en"}},
        {{"", "", "it_IT.UTF-8", "ja_JP.UTF-8"}, {"it-IT", "it", "en"}},
        {{"", "ko_KR.UTF-8", "it_IT.UTF-8", "ja_JP.UTF-8"}, {"ko-KR", "ko", "en"}},
        {{"", "C", "", "ja_JP.UTF-8"}, {"en"}},
        {{"pt_BR:es", "", "", "de_DE.UTF-8"}, {"pt-BR", "pt", "es", "de-DE", "de", "en"}},
        {{"ru", "", "", ""}, {"ru", "en"}},
        {{"ru", "", "", "C.UTF-8"}, {"ru", "en"}},
        {{"ru", "C", "", "de_DE.UTF-8"}, {"en"}},
        {{"ru", "POSIX", "", ""}, {"en"}},
        {{"en_GB:en:de", "", "", "fr_FR.UTF-8"}, {"en-GB", "en", "de", "fr-FR", "fr"}},
        {{":::fr::", "", "", "fr_FR.UTF-8"}, {"fr", "fr-FR", "en"}},
        {{"pt-BR", "", "", "C.UTF-8"}, {"pt-BR", "pt", "en"}},
        {{"", "", "", "zh_CN.UTF-8"}, {"zh-Hans", "en"}},
        {{"", "", "", "zh_SG"}, {"zh-Hans", "en"}},
        {{"", "", "", "zh"}, {"zh-Hans", "en"}},
        {{"zh-Hans", "", "", "C.UTF-8"}, {"zh-Hans", "en"}},
        {{"zh_Hans_CN", "", "", "C.UTF-8"}, {"zh-Hans", "en"}},
        {{"", "", "", "zh_TW.UTF-8"}, {"zh-Hant", "en"}},
        {{"zh_HK:zh_CN", "", "", "zh_HK.UTF-8"}, {"zh-Hant", "zh-Hans", "en"}},
        {{"zh_Hant_TW", "", "", "C.UTF-8"}, {"zh-Hant", "en"}},
    };
    for (const auto& [settings, languages] : table) {
        EXPECT_THAT(userLanguages(settings), ElementsAreArray(languages))
            << settings.language << " | " << settings.lcAll << " | " << settings.lcMessages << " | "
            << settings.lang;
    }
}

TEST(UserLanguagesTest, TheSettingsComeFromTheEnvironment) {
    const std::vector<const char*> names{"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"};
    std::vector<std::pair<const char*, std::optional<std::string>>> saved;
    for (const char* name : names) {
        const char* value = g_getenv(name);
        saved.emplace_back(name,
                           value != nullptr ? std::optional<std::string>(value) : std::nullopt);
        g_setenv(name, (std::string("value of ") + name).c_str(), TRUE);
    }
    g_unsetenv("LANG");
    const auto settings = LanguageSettings::fromEnvironment();
    EXPECT_EQ(settings.language, "value of LANGUAGE");
    EXPECT_EQ(settings.lcAll, "value of LC_ALL");
    EXPECT_EQ(settings.lcMessages, "value of LC_MESSAGES");
    EXPECT_EQ(settings.lang, "");
    for (const auto& [name, value] : saved) {
        if (value) {
            g_setenv(name, value->c_str(), TRUE);
        } else {
            g_unsetenv(name);
        }
    }
}

}  // namespace
}  // namespace glintmark::platform
