#include <gio/gio.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "linux/files/FileURI.h"
#include "linux/glib/GLibHandles.h"
#include "linux/images/PNGWriter.h"
#include "linux/workspace/IconStore.h"
#include "linux/workspace/IconThumbnail.h"
#include "tests/linux/PNGReading.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

class IconThumbnailTest : public testing::Test {
protected:
    void SetUp() override {
        if (!giveIcon(encodedPNG(square(512, 250, 100, 50, 200)))) {
            GTEST_SKIP() << "no extended attributes here";
        }
    }

    bool giveIcon(const std::string& png) { return writeIconName(file_, store_.put(png).value()); }

    bool writeThumbnail(int edge) const { return writeIconThumbnail(store_, file_, output_, edge); }

    bool hasOutput() const { return std::filesystem::exists(output_); }

    /// The exit status of the program that thumbnail services run.
    int runProgram(const std::vector<std::string>& arguments) const {
        std::vector<const char*> command{GLINTMARK_THUMBNAILER};
        for (const auto& argument : arguments) {
            command.push_back(argument.c_str());
        }
        command.push_back(nullptr);
        const GObjectHandle<GSubprocessLauncher> launcher(
            g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDERR_SILENCE));
        g_subprocess_launcher_setenv(launcher.get(), "XDG_DATA_HOME", (folder_ / "data").c_str(),
                                     TRUE);
        const GObjectHandle<GSubprocess> program(
            g_subprocess_launcher_spawnv(launcher.get(), command.data(), nullptr));
        g_subprocess_wait(program.get(), nullptr, nullptr);
        return g_subprocess_get_if_exited(program.get()) != FALSE
                   ? g_subprocess_get_exit_status(program.get())
                   : -1;
    }

    test::TemporaryDirectory folder_;
    IconStore store_{folder_ / "data"};
    std::string file_ = folder_.write("a b%.webloc");
    std::string output_ = folder_ / "out.png";
};

TEST_F(IconThumbnailTest, WritesTheIconScaledToTheSize) {
    ASSERT_TRUE(writeThumbnail(200));
    const ReadPNG read = readPNG(folder_.read("out.png"));
    EXPECT_EQ(read.width, 200);
    EXPECT_EQ(read.height, 200);
    EXPECT_EQ(read.pixels[0], 250);
    EXPECT_EQ(read.pixels[3], 200);
}

TEST_F(IconThumbnailTest, TheIconIsNotEnlarged) {
    ASSERT_TRUE(writeThumbnail(1024));
    EXPECT_EQ(readPNG(folder_.read("out.png")).width, 512);
}

TEST_F(IconThumbnailTest, AReaderThatHasTheOutputOpenGetsThePicture) {
    std::ifstream reader(folder_.write("out.png"), std::ios::binary);
    ASSERT_TRUE(writeThumbnail(64));
    const std::string bytes{std::istreambuf_iterator<char>(reader), {}};
    EXPECT_EQ(readPNG(bytes).width, 64);
}

TEST_F(IconThumbnailTest, TheFileMayBeNamedByItsURI) {
    EXPECT_TRUE(writeIconThumbnail(store_, glibFileURI(file_), output_, 64));
    EXPECT_EQ(readPNG(folder_.read("out.png")).height, 64);
}

TEST_F(IconThumbnailTest, AFileWithoutAnIconHasNoThumbnail) {
    EXPECT_FALSE(writeIconThumbnail(store_, folder_.write("plain.webloc"), output_, 64));
    EXPECT_FALSE(writeIconThumbnail(store_, folder_ / "missing.webloc", output_, 64));
    EXPECT_FALSE(hasOutput());
}

TEST_F(IconThumbnailTest, AMissingBrokenOrTooLargePictureMakesNoThumbnail) {
    giveIcon("no picture");
    EXPECT_FALSE(writeThumbnail(64));
    giveIcon(encodedPNG(square(512, 1, 2, 3)).substr(0, 900));
    EXPECT_FALSE(writeThumbnail(64));
    giveIcon(encodedPNG(square(513, 1, 2, 3)));
    EXPECT_FALSE(writeThumbnail(64));
    writeIconName(file_, std::string(64, 'a'));
    EXPECT_FALSE(writeThumbnail(64));
    EXPECT_FALSE(hasOutput());
}

TEST_F(IconThumbnailTest, AnOutputThatCannotBeWrittenIsAFailure) {
    EXPECT_FALSE(writeIconThumbnail(store_, file_, "/nowhere/out.png", 64));
    EXPECT_FALSE(writeThumbnail(0));
}

TEST_F(IconThumbnailTest, TheProgramTakesPathOutputAndSize) {
    EXPECT_EQ(runProgram({file_, output_, "128"}), 0);
    EXPECT_EQ(readPNG(folder_.read("out.png")).width, 128);
}

TEST_F(IconThumbnailTest, TheProgramFailsWithoutAnIconOrWithWrongArguments) {
    EXPECT_EQ(runProgram({folder_.write("plain.webloc"), output_, "128"}), 1);
    EXPECT_EQ(runProgram({file_, output_, "wide"}), 1);
    EXPECT_EQ(runProgram({file_, output_, "128px"}), 1);
    EXPECT_EQ(runProgram({file_, output_, "-1"}), 1);
    EXPECT_EQ(runProgram({file_}), 2);
    EXPECT_FALSE(hasOutput());
}

}  // namespace
}  // namespace glintmark::platform
