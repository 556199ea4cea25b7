#include <glib.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "linux/process/ProgramEnvironment.h"

namespace glintmark::platform {
namespace {

constexpr auto faviconService = "GLINTMARK_FAVICON_SERVICE";

class FaviconServiceTest : public testing::Test {
protected:
    FaviconServiceTest() {
        if (const char* value = g_getenv(faviconService); value != nullptr) {
            before_ = value;
        }
        g_unsetenv(faviconService);
    }
    ~FaviconServiceTest() override {
        g_unsetenv(faviconService);
        if (before_) {
            g_setenv(faviconService, before_->c_str(), TRUE);
        }
    }

private:
    std::optional<std::string> before_;
};

TEST(ProgramEnvironmentTest, TheProgramFolderHoldsTheOtherProgramsOfTheBuild) {
    EXPECT_EQ(programFolder(), std::filesystem::path(GLINTMARK_THUMBNAILER).parent_path());
    EXPECT_TRUE(std::filesystem::exists(programFolder() + "/" + imageDecoderName));
}

TEST_F(FaviconServiceTest, SlashesAtTheEndOfTheVariableDoNotCount) {
    for (const char* value : {"http://icons.example/", "http://icons.example//"}) {
        g_setenv(faviconService, value, TRUE);
        EXPECT_EQ(faviconServiceAddress(), "http://icons.example");
    }
    g_setenv(faviconService, "http://icons.example/own/path/", TRUE);
    EXPECT_EQ(faviconServiceAddress(), "http://icons.example/own/path");
    g_setenv(faviconService, "/", TRUE);
    EXPECT_EQ(faviconServiceAddress(), "");
}

TEST_F(FaviconServiceTest, WithoutTheVariableTheDefaultServiceIsAsked) {
    EXPECT_EQ(faviconServiceAddress(), "https://www.google.com");
}

TEST_F(FaviconServiceTest, TheVariableReplacesTheDefaultAlsoWhenItIsEmpty) {
    g_setenv(faviconService, "http://icons.example", TRUE);
    EXPECT_EQ(faviconServiceAddress(), "http://icons.example");
    g_setenv(faviconService, "", TRUE);
    EXPECT_EQ(faviconServiceAddress(), "");
}

}  // namespace
}  // namespace glintmark::platform
