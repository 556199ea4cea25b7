#include <gtest/gtest.h>

#include "base/text/TextDescription.h"

namespace glintmark {
namespace {

TEST(TextDescriptionTest, ListsAreQuotedAndSeparatedByCommas) {
    struct Case {
        std::vector<std::string> texts;
        const char* description;
    };
    const Case cases[] = {
        {{}, "[]"},
        {{"/home/kim/Desktop"}, R"(["/home/kim/Desktop"])"},
        {{"a", "", "c, d"}, R"(["a", "", "c, d"])"},
        {{R"(a"b\c)"}, R"(["a\"b\\c"])"},
        {{"リンク\n%s"}, "[\"リンク\n%s\"]"},
    };
    for (const auto& [texts, description] : cases) {
        EXPECT_EQ(listDescription(texts), description);
    }
}

}  // namespace
}  // namespace glintmark
