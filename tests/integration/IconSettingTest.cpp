#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>

#include "app/AppDelegate.h"
#include "base/graphics/Image.h"
#include "icon/IconApplier.h"
#include "linux/files/PosixFileManager.h"
#include "linux/workspace/DesktopWorkspace.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/linux/PrivateBus.h"
#include "tests/support/TemporaryDirectory.h"

// The pipeline and the icon applier over real files and the real workspace. Sites, images, queues
// and the log are fakes.

namespace glintmark {
namespace {

using testing::ElementsAre;
using namespace std::chrono_literals;

struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status;
}

std::shared_ptr<const Image> redImage() {
    return std::make_shared<const Image>(
        BitmapImageRep(1, 1, true, std::vector<std::uint8_t>{255, 0, 0, 255}));
}

class IconSettingTest : public testing::Test {
protected:
    IconSettingTest() {
        fakes_.urlSession.answer("https://site.example/favicon.ico", 200, "image 64x64 opaque", 1s);
    }

    /// Handles an event about the file. Stops when the link has been read.
    void readLink() {
        std::make_shared<AppDelegate>()->handleFileEvent({linkFile_, 0});
        fakes_.queues.advance(500ms);
        ASSERT_THAT(log().lines(), testing::Contains("Glintmark: URL → https://site.example/"));
    }
    void finishTheRoad() { fakes_.queues.runUntilIdle(); }

    bool hasIcon(const std::string& path) const {
        return platform::readIconName(path) != std::nullopt;
    }
    bool hasThumbnails() const { return std::filesystem::exists(folder_ / "cache"); }
    std::string lastLines() {
        const auto lines = log().lines();
        return lines[lines.size() - 2] + "\n" + lines.back();
    }
    std::string endOfRoad(const std::string& result) const {
        return "Glintmark: アイコン適用" + result + " → " + linkFile_ +
               "\nGlintmark: Icon applied → " + linkFile_;
    }
    doubles::FakeLog& log() { return fakes_.log; }

    test::TemporaryDirectory folder_;
    const std::string linkFile_ = folder_.write(
        "home/a.webloc",
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict><key>URL</key>"
        "<string>https://site.example/</string></dict></plist>");

private:
    platform::PrivateBus noBus_{platform::PrivateBus::Begin::stopped};
    platform::SessionBus bus_;
    doubles::Fakes fakes_;
    platform::DesktopWorkspace workspace_{
        bus_,
        fakes_.queues.background(),
        {folder_ / "home", folder_ / "data", folder_ / "cache"},
        [](const std::string&, const std::string&) { return true; }};
    platform::PosixFileManager fileManager_;
    platform::Services services_ =
        fakes_.servicesWith({.fileManager = &fileManager_, .workspace = &workspace_});
    platform::ServicesScope scope_{services_};
};

TEST_F(IconSettingTest, APathThatDoesNotExistYieldsOnlyTheFailureLine) {
    const std::string missing = folder_ / "home/missing.webloc";
    IconApplier::apply(redImage(), missing);
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: アイコン適用失敗 → " + missing));
    EXPECT_FALSE(hasThumbnails());
    EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(IconSettingTest, AnExistingPathYieldsOnlyTheSuccessLine) {
    IconApplier::apply(redImage(), linkFile_);
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: アイコン適用成功 → " + linkFile_));
    EXPECT_TRUE(hasThumbnails());
}

TEST_F(IconSettingTest, AnImageWhosePixelsAreLostLeavesNothingBehind) {
    IconApplier::apply(std::make_shared<const Image>(Size{2000, 2000}), linkFile_);
    EXPECT_THAT(log().lines(), ElementsAre("Glintmark: アイコン適用失敗 → " + linkFile_));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "data"));
    EXPECT_FALSE(hasThumbnails());
    EXPECT_FALSE(hasIcon(linkFile_));
}

TEST_F(IconSettingTest, TheFileThatWasReadGetsTheIcon) {
    readLink();
    finishTheRoad();
    EXPECT_EQ(lastLines(), endOfRoad("成功"));
    EXPECT_TRUE(hasThumbnails());
}

TEST_F(IconSettingTest, ALinkPutInPlaceOfTheFileAfterItWasReadIsNotFollowed) {
    const std::string document = folder_.write("documents/report.pdf", "document");
    const struct stat before = statusOf(document);
    readLink();
    folder_.remove("home/a.webloc");
    folder_.createLink(document, "home/a.webloc");
    finishTheRoad();
    EXPECT_EQ(lastLines(), endOfRoad("失敗"));
    EXPECT_EQ(statusOf(document).st_ctim.tv_nsec, before.st_ctim.tv_nsec);
    EXPECT_FALSE(hasIcon(document));
    EXPECT_FALSE(hasThumbnails());
}

TEST_F(IconSettingTest, AFileThatIsSavedAgainAfterItWasReadGetsTheIcon) {
    readLink();
    folder_.write("home/.a.webloc.new", folder_.read("home/a.webloc"));
    folder_.move("home/.a.webloc.new", "home/a.webloc");
    finishTheRoad();
    EXPECT_EQ(lastLines(), endOfRoad("成功"));
    EXPECT_TRUE(hasThumbnails());
}

TEST_F(IconSettingTest, ALinkFileReadThroughASymbolicLinkGetsTheIcon) {
    folder_.move("home/a.webloc", "home/real.webloc");
    folder_.createLink("real.webloc", "home/a.webloc");
    readLink();
    finishTheRoad();
    EXPECT_EQ(lastLines(), endOfRoad("成功"));
    EXPECT_EQ(hasIcon(folder_ / "home/real.webloc"), hasIcon(linkFile_));
    EXPECT_TRUE(hasThumbnails());
}

}  // namespace
}  // namespace glintmark
