#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "platform/linux/EmbeddedBundle.h"

namespace glintmark::platform {
namespace {

using testing::IsSupersetOf;

const std::vector<std::string> keys{
    "menu.watching",  "menu.folders", "menu.removeFolder",  "menu.revealInFinder",
    "menu.addFolder", "menu.quit",    "panel.selectFolder", "notification.iconApplied"};

constexpr auto tableSuffix = ".lproj/Localizable.strings";
constexpr glong longestMenuText = 60;

/// The languages whose tables are built in.
std::vector<std::string> builtInLanguages() {
    std::vector<std::string> languages;
    for (const auto& file : resources::embeddedFiles()) {
        if (const auto end = file.name.find(tableSuffix); end != std::string_view::npos) {
            languages.emplace_back(file.name.substr(0, end));
        }
    }
    return languages;
}

TEST(EmbeddedBundleTest, HasATableForEachLanguage) {
    EXPECT_THAT(builtInLanguages(),
                IsSupersetOf({"en", "ja", "de", "fr", "es", "pt", "it", "zh-Hans", "ko", "ru"}));
}

TEST(EmbeddedBundleTest, EachTableTranslatesEveryKeyInMenuLength) {
    for (const auto& language : builtInLanguages()) {
        EmbeddedBundle bundle({language});
        for (const auto& key : keys) {
            const std::string text = bundle.localizedString(key);
            EXPECT_NE(text, key) << language;
            EXPECT_NE(text, "") << language << " " << key;
            EXPECT_TRUE(g_utf8_validate(text.c_str(), -1, nullptr)) << language << " " << key;
            EXPECT_LE(g_utf8_strlen(text.c_str(), -1), longestMenuText) << language << " " << key;
        }
    }
}

TEST(EmbeddedBundleTest, TablesHoldNoOtherKeys) {
    for (const auto& file : resources::embeddedFiles()) {
        if (file.name.ends_with(tableSuffix)) {
            const auto table = PropertyList::parse("{" + std::string(file.bytes) + "}");
            ASSERT_TRUE(table && table->dictionary() != nullptr) << file.name;
            EXPECT_EQ(table->dictionary()->size(), keys.size()) << file.name;
        }
    }
}

TEST(EmbeddedBundleTest, LanguagesOtherThanEnglishAreTranslated) {
    EmbeddedBundle english({"en"});
    for (const auto& language : builtInLanguages()) {
        if (language != "en") {
            EmbeddedBundle bundle({language});
            for (const auto& key : keys) {
                EXPECT_NE(bundle.localizedString(key), english.localizedString(key)) << language;
            }
        }
    }
}

TEST(EmbeddedBundleTest, TextsKeepTheirCharacters) {
    EXPECT_EQ(EmbeddedBundle({"de"}).localizedString("menu.addFolder"), "Ordner hinzufügen …");
    EXPECT_EQ(EmbeddedBundle({"ja"}).localizedString("menu.quit"), "Glintmarkを終了");
    EXPECT_EQ(EmbeddedBundle({"en"}).localizedString("menu.revealInFinder"),
              "Show in File Manager");
}

TEST(EmbeddedBundleTest, TheInformationDictionaryNamesTheVersion) {
    EmbeddedBundle bundle({"en"});
    EXPECT_EQ(bundle.infoString("CFBundleShortVersionString"), GLINTMARK_VERSION);
    EXPECT_EQ(bundle.infoString("CFBundleIdentifier"), "com.quorvel.Glintmark");
    EXPECT_EQ(bundle.infoString("NoSuchKey"), std::nullopt);
}

constexpr std::array<resources::EmbeddedFile, 4> exampleFiles{
    {{"Info.plist", "{ CFBundleShortVersionString = (1, 2); }"},
     {"de.lproj/Localizable.strings", R"("both" = "beide"; "broken" = ( );)"},
     {"en.lproj/Localizable.strings", R"(/* note */ "both" = "both!"; "english" = "only";)"},
     {"fr.lproj/Localizable.strings", R"("unfinished)"}}};

TEST(EmbeddedBundleTest, TheFirstLanguageThatHasTheTextWins) {
    EmbeddedBundle bundle({"xx", "fr", "de", "en"}, exampleFiles);
    EXPECT_EQ(bundle.localizedString("both"), "beide");
    EXPECT_EQ(bundle.localizedString("english"), "only");
    EXPECT_EQ(EmbeddedBundle({"en", "de"}, exampleFiles).localizedString("both"), "both!");
}

TEST(EmbeddedBundleTest, AKeyWithoutATextStandsForItself) {
    EmbeddedBundle bundle({"de", "en"}, exampleFiles);
    EXPECT_EQ(bundle.localizedString("menu.none"), "menu.none");
    EXPECT_EQ(bundle.localizedString("broken"), "broken");
    EXPECT_EQ(bundle.localizedString(""), "");
}

TEST(EmbeddedBundleTest, AnInformationValueThatIsNoStringIsAbsent) {
    EmbeddedBundle bundle({"en"}, exampleFiles);
    EXPECT_EQ(bundle.infoString("CFBundleShortVersionString"), std::nullopt);
    EXPECT_EQ(EmbeddedBundle({"en"}, {}).infoString("CFBundleShortVersionString"), std::nullopt);
}

}  // namespace
}  // namespace glintmark::platform
