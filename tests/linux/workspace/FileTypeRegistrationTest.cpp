#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "linux/glib/GLibHandles.h"
#include "linux/workspace/FileTypeRegistration.h"
#include "tests/linux/MainLoop.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

constexpr auto typeFile = "data/mime/packages/com.quorvel.Glintmark.xml";
constexpr auto thumbnailerFile = "data/thumbnailers/com.quorvel.Glintmark.thumbnailer";
constexpr auto kdeFile = "data/kservices5/glintmark-webloc.desktop";

class FileTypeRegistrationTest : public testing::Test {
protected:
    void makeBuildTree(const std::string& name) const {
        std::filesystem::create_directories(folder_ / name);
        std::filesystem::copy(GLINTMARK_FILETYPE, folder_ / (name + "/filetype"));
        folder_.write(name + "/glintmark-thumbnailer");
    }

    bool registerFrom(const std::string& name) const {
        return registerFileTypeOfBuildTree(folder_ / name, folder_ / "data");
    }

    test::TemporaryDirectory folder_;
};

TEST_F(FileTypeRegistrationTest, AProgramInItsBuildTreeRegistersAndReportsIt) {
    makeBuildTree("build");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(registerFrom("build"));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(folder_ / "data\n"));
    EXPECT_THAT(folder_.read(typeFile), HasSubstr("application/x-webloc"));
    EXPECT_THAT(folder_.read(kdeFile), HasSubstr("X-KDE-ServiceTypes=ThumbCreator"));
    EXPECT_THAT(folder_.read(thumbnailerFile),
                HasSubstr("\nExec='" + (folder_ / "build/glintmark-thumbnailer") + "' %i %o %s\n"));
    EXPECT_THAT(folder_.read(thumbnailerFile),
                HasSubstr("\nTryExec=" + (folder_ / "build/glintmark-thumbnailer") + "\n"));
}

TEST_F(FileTypeRegistrationTest, TheTypeIsKnownAfterwards) {
    makeBuildTree("build");
    ASSERT_TRUE(registerFrom("build"));
    ASSERT_TRUE(
        waitUntil([&] { return std::filesystem::exists(folder_ / "data/mime/mime.cache"); }));
    EXPECT_THAT(folder_.read("data/mime/globs2"), HasSubstr("60:application/x-webloc:*.webloc"));
    EXPECT_THAT(folder_.read("data/mime/subclasses"),
                HasSubstr("application/x-webloc application/xml"));
    EXPECT_THAT(folder_.read("data/mime/generic-icons"),
                HasSubstr("application/x-webloc:text-html"));
}

TEST_F(FileTypeRegistrationTest, ASecondStartChangesAndReportsNothing) {
    makeBuildTree("build");
    registerFrom("build");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(registerFrom("build"));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), IsEmpty());
}

TEST_F(FileTypeRegistrationTest, APathWithSpacesAndQuotesIsOneWordOfTheCommand) {
    makeBuildTree("it's a 100% tree");
    ASSERT_TRUE(registerFrom("it's a 100% tree"));
    GKeyFile* keys = g_key_file_new();
    ASSERT_NE(g_key_file_load_from_file(keys, (folder_ / thumbnailerFile).c_str(), G_KEY_FILE_NONE,
                                        nullptr),
              FALSE);
    GErrorOut error;  // also for an escape that the format does not have
    const GStringHandle command(
        g_key_file_get_string(keys, "Thumbnailer Entry", "Exec", error.out()));
    EXPECT_FALSE(error) << error.get()->message;
    g_key_file_unref(keys);
    gchar** words = nullptr;
    ASSERT_NE(g_shell_parse_argv(command.get(), nullptr, &words, nullptr), FALSE);
    const GStrvHandle owned(words);
    EXPECT_EQ(words[0], folder_ / "it's a 100%% tree/glintmark-thumbnailer");
    EXPECT_STREQ(words[1], "%i");
}

TEST_F(FileTypeRegistrationTest, AProgramThatOthersCanReplaceIsNotRegistered) {
    using std::filesystem::perms;
    makeBuildTree("shared/build");
    for (const char* part : {"shared", "shared/build", "shared/build/glintmark-thumbnailer"}) {
        const auto before = std::filesystem::status(folder_ / part).permissions();
        std::filesystem::permissions(folder_ / part, before | perms::others_write);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(registerFrom("shared/build"));
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    HasSubstr("others can change " + (folder_ / part) + "\n"));
        std::filesystem::permissions(folder_ / part, before);
    }
    EXPECT_FALSE(std::filesystem::exists(folder_ / "data"));
    EXPECT_TRUE(registerFrom("shared/build"));
}

TEST_F(FileTypeRegistrationTest, AStickyFolderKeepsTheProgram) {
    using std::filesystem::perms;
    makeBuildTree("sticky/build");
    std::filesystem::permissions(folder_ / "sticky", perms::all | perms::sticky_bit);
    EXPECT_TRUE(registerFrom("sticky/build"));
}

TEST_F(FileTypeRegistrationTest, AForeignOwnerCanReplaceTheProgram) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give a folder away";
    }
    makeBuildTree("foreign/build");
    ASSERT_EQ(chown((folder_ / "foreign").c_str(), 4242, 4242), 0);
    EXPECT_FALSE(registerFrom("foreign/build"));
}

TEST_F(FileTypeRegistrationTest, TheThumbnailerIsRemovedAtTheEndAndTheTypeStays) {
    makeBuildTree("build");
    makeBuildTree("other");
    ASSERT_TRUE(registerFrom("build"));
    removeThumbnailerOfBuildTree(folder_ / "other", folder_ / "data");
    EXPECT_TRUE(std::filesystem::exists(folder_ / thumbnailerFile));
    removeThumbnailerOfBuildTree(folder_ / "build", folder_ / "data");
    EXPECT_FALSE(std::filesystem::exists(folder_ / thumbnailerFile));
    EXPECT_TRUE(std::filesystem::exists(folder_ / typeFile));
}

TEST_F(FileTypeRegistrationTest, AnInstalledProgramRegistersNothing) {
    std::filesystem::create_directories(folder_ / "usr/bin");
    EXPECT_FALSE(registerFrom("usr/bin"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "data"));
}

TEST_F(FileTypeRegistrationTest, ADataFolderThatCannotBeWrittenIsAFailure) {
    makeBuildTree("build");
    folder_.write("data", "a file where the folder should be");
    EXPECT_FALSE(registerFrom("build"));
}

}  // namespace
}  // namespace glintmark::platform
