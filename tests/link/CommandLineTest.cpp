#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "link/CommandLine.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark::link {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

using CommandLineTest = doubles::PlatformTest;

CommandLine parse(const std::vector<std::string>& arguments) {
    return parseCommandLine(arguments, "1.2.3");
}

TEST_F(CommandLineTest, EachCommandTakesItsOptionsAndArguments) {
    const auto icon = parse({"icon", "-r", "a", "--missing-only", "--dry-run", "--json", "b"});
    ASSERT_TRUE(icon.command);
    EXPECT_EQ(icon.command->verb, Command::Verb::icon);
    EXPECT_TRUE(icon.command->isRecursive && icon.command->isMissingOnly &&
                icon.command->isDryRun && icon.command->asJSON);
    EXPECT_FALSE(icon.command->isNotifying);
    EXPECT_THAT(icon.command->arguments, ElementsAre("a", "b"));

    const auto open = parse({"open", "--", "--help"});
    ASSERT_TRUE(open.command);
    EXPECT_EQ(open.command->verb, Command::Verb::open);
    EXPECT_THAT(open.command->arguments, ElementsAre("--help"));

    const auto explain = parse({"explain", "--html", "page.html", "http://h/"});
    ASSERT_TRUE(explain.command);
    EXPECT_EQ(explain.command->htmlFile, "page.html");

    const auto create = parse({"new", "--force", "--from", "a.url", "b.url", "c.desktop"});
    ASSERT_TRUE(create.command);
    EXPECT_EQ(create.command->verb, Command::Verb::create);
    EXPECT_TRUE(create.command->mayReplace && create.command->fromFiles);
}

TEST_F(CommandLineTest, ArgumentsAreBytes) {
    const auto line = parse({"open", "a\xFF"});
    ASSERT_TRUE(line.command);
    EXPECT_THAT(line.command->arguments, ElementsAre("a\xFF"));
}

TEST_F(CommandLineTest, WrongUseIsAnError) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"unknown"},
                                               {"--unknown"},
                                               {"icon"},
                                               {"icon", "--unknown", "a"},
                                               {"open", "--json", "a"},
                                               {"explain", "a", "b"},
                                               {"explain", "--html"},
                                               {"new"},
                                               {"new", "a", "b", "c"},
                                               {"new", "--desktop"}}) {
        const auto line = parse(arguments);
        EXPECT_TRUE(line.error && !line.command && !line.output)
            << testing::PrintToString(arguments);
    }
}

TEST_F(CommandLineTest, HelpAndVersionAreOutput) {
    EXPECT_THAT(parse({"--version"}).output, Optional(std::string("glintmark-link 1.2.3\n")));
    EXPECT_THAT(parse({"--help"}).output, Optional(HasSubstr("icon FILE|FOLDER…\n")));
    const auto help = parse({"icon", "--help"}).output;
    EXPECT_THAT(help, Optional(HasSubstr("glintmark-link icon")));
    EXPECT_THAT(help, Optional(HasSubstr("-r, --recursive")));
    EXPECT_THAT(help, Optional(HasSubstr("option.dry-run")));
}

}  // namespace
}  // namespace glintmark::link
