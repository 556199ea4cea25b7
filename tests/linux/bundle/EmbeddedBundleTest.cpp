#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <regex>
#include <set>
#include <string_view>

#include "linux/bundle/EmbeddedBundle.h"
#include "tests/support/WholeFile.h"

namespace glintmark::platform {
namespace {

using testing::IsSupersetOf;
using testing::UnorderedElementsAreArray;

constexpr auto tableSuffix = ".lproj/Localizable.strings";

/// A column is about 7 pixels wide in the 10-point fonts of desktops. 44 columns and the menu's
/// margins are 340 pixels: a menu and its submenu fill little more than half of a 1280-pixel
/// screen.
constexpr glong maximumMenuColumns = 44;
constexpr glong maximumPanelColumns = 60;         // one line of a folder dialog
constexpr glong maximumNotificationColumns = 32;  // one line of a bubble, set in bold

glong maximumColumns(std::string_view key) {
    if (key.starts_with("panel.")) {
        return maximumPanelColumns;
    }
    return key.starts_with("notification.") ? maximumNotificationColumns : maximumMenuColumns;
}

/// The columns that `text` takes in a terminal, two for each ideograph, kana or hangul. In any font
/// the width is close to that.
glong columns(const std::string& text) {
    glong sum = 0;
    for (const char* at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        const gunichar character = g_utf8_get_char(at);
        sum += g_unichar_iszerowidth(character) != FALSE ? 0
               : g_unichar_iswide(character) != FALSE    ? 2
                                                         : 1;
    }
    return sum;
}

/// The format directives in `text`, in order.
std::vector<std::string> placeholders(const std::string& text) {
    std::vector<std::string> found;
    for (auto at = text.find('%'); at != std::string::npos; at = text.find('%', at + 2)) {
        const auto end = text.find_first_of("@%diuoxXcsfFeEgGaAp", at + 1);
        found.push_back(text.substr(at, end == std::string::npos ? end : end + 1 - at));
    }
    return found;
}

/// The keys of a table's lines, in order. A key that occurs twice is listed twice.
std::vector<std::string> keysOf(std::string_view table) {
    std::vector<std::string> found;
    for (std::size_t begin = 0; begin < table.size();) {
        const auto end = std::min(table.find('\n', begin), table.size());
        const auto line = table.substr(begin, end - begin);
        if (line.starts_with('"')) {
            found.emplace_back(line.substr(1, line.find('"', 1) - 1));
        }
        begin = end + 1;
    }
    return found;
}

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

/// All keys: those of the English table.
std::vector<std::string> allKeys() {
    const auto englishTable = "en" + std::string(tableSuffix);
    for (const auto& file : resources::embeddedFiles()) {
        if (file.name == englishTable) {
            return keysOf(file.bytes);
        }
    }
    ADD_FAILURE() << "no English table";
    return {};
}

TEST(EmbeddedBundleTest, HasATableForEachLanguage) {
    EXPECT_THAT(builtInLanguages(),
                IsSupersetOf({"en", "ja", "de", "fr", "es", "pt", "it", "zh-Hans", "ko", "ru"}));
}

/// The keys that the sources of app/ look up, each once.
std::set<std::string> keysInSources() {
    std::set<std::string> found;
    const std::regex lookup(R"re(\bL\("([^"]+)"\))re");
    for (const auto& entry :
         std::filesystem::directory_iterator(GLINTMARK_TEST_DATA "/../../app")) {
        const std::string text = test::wholeFile(entry.path());
        for (std::sregex_iterator at(text.begin(), text.end(), lookup), end; at != end; ++at) {
            found.insert((*at)[1]);
        }
    }
    return found;
}

TEST(EmbeddedBundleTest, TheEnglishTableHasExactlyTheKeysThatTheProgramLooksUp) {
    EXPECT_THAT(allKeys(), UnorderedElementsAreArray(keysInSources()));
}

TEST(EmbeddedBundleTest, EachTableHasEveryKeyOfTheEnglishOneOnceAndNoOther) {
    const auto keys = allKeys();
    for (const auto& file : resources::embeddedFiles()) {
        if (file.name.ends_with(tableSuffix)) {
            EXPECT_THAT(keysOf(file.bytes), UnorderedElementsAreArray(keys)) << file.name;
            const auto table = PropertyList::parse("{" + std::string(file.bytes) + "}");
            ASSERT_TRUE(table && table->dictionary() != nullptr) << file.name;
            EXPECT_EQ(table->dictionary()->size(), keys.size()) << file.name;
        }
    }
}

TEST(EmbeddedBundleTest, NoTextIsTooWideForItsPlace) {
    const auto keys = allKeys();
    for (const auto& language : builtInLanguages()) {
        EmbeddedBundle bundle({language});
        for (const auto& key : keys) {
            const std::string text = bundle.localizedString(key);
            EXPECT_NE(text, key) << language;
            ASSERT_TRUE(g_utf8_validate(text.c_str(), -1, nullptr)) << language << " " << key;
            EXPECT_GT(columns(text), 0) << language << " " << key;
            EXPECT_LE(columns(text), maximumColumns(key)) << language << " " << key << ": " << text;
        }
    }
}

TEST(EmbeddedBundleTest, ColumnsCountWideCharactersTwiceAndMarksNotAtAll) {
    EXPECT_EQ(columns("Añadir…"), 7);
    EXPECT_EQ(columns("終了Gl"), 6);
    EXPECT_EQ(columns("종료"), 4);
    EXPECT_EQ(columns("e\u0301"), 1);
}

TEST(EmbeddedBundleTest, TextsHaveThePlaceholdersOfEnglishAndNothingThatSplitsALine) {
    const auto keys = allKeys();
    EmbeddedBundle english({"en"});
    for (const auto& language : builtInLanguages()) {
        EmbeddedBundle bundle({language});
        for (const auto& key : keys) {
            const std::string text = bundle.localizedString(key);
            EXPECT_EQ(placeholders(text), placeholders(english.localizedString(key)))
                << language << " " << key;
            EXPECT_EQ(text.find_first_of("\n\t_&"), std::string::npos) << language << " " << key;
            EXPECT_FALSE(text.starts_with(' ') || text.ends_with(' ')) << language << " " << key;
            // A command that asks for more before it acts ends in an ellipsis in every language.
            EXPECT_EQ(text.ends_with("…"), key == "menu.addFolder") << language << " " << key;
        }
    }
    EXPECT_THAT(placeholders("%@ of %2$d, 100%%"), testing::ElementsAre("%@", "%2$d", "%%"));
}

TEST(EmbeddedBundleTest, LanguagesOtherThanEnglishAreTranslated) {
    const auto keys = allKeys();
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

TEST(EmbeddedBundleTest, AKeyWithoutATextIsReturnedItself) {
    EmbeddedBundle bundle({"de", "en"}, exampleFiles);
    EXPECT_EQ(bundle.localizedString("menu.none"), "menu.none");
    EXPECT_EQ(bundle.localizedString("broken"), "broken");
    EXPECT_EQ(bundle.localizedString(""), "");
}

TEST(EmbeddedBundleTest, AnInformationValueThatIsNotAStringIsAbsent) {
    EmbeddedBundle bundle({"en"}, exampleFiles);
    EXPECT_EQ(bundle.infoString("CFBundleShortVersionString"), std::nullopt);
    EXPECT_EQ(EmbeddedBundle({"en"}, {}).infoString("CFBundleShortVersionString"), std::nullopt);
}

}  // namespace
}  // namespace glintmark::platform
