#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>

#include "linux/statusitem/FolderChecks.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/Unprivileged.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

/// Folders whose file systems answer when the test says so.
class SlowFolders {
public:
    bool look(const std::string& folder) {
        std::unique_lock lock(mutex_);
        ++looks_[folder];
        ++inside_;
        answered_.wait(lock, [&] { return !hangs_ || folder.front() != '!'; });
        --inside_;
        return folder.find("missing") == std::string::npos;
    }

    void answer() {
        const std::lock_guard lock(mutex_);
        hangs_ = false;
        answered_.notify_all();
    }

    int looks(const std::string& folder) {
        const std::lock_guard lock(mutex_);
        return looks_[folder];
    }

    int inside() {
        const std::lock_guard lock(mutex_);
        return inside_;
    }

private:
    std::mutex mutex_;
    std::condition_variable answered_;
    std::map<std::string, int> looks_;
    int inside_ = 0;
    bool hangs_ = true;
};

class FolderChecksTest : public testing::Test {
protected:
    ~FolderChecksTest() override {
        folders_->answer();
        waitUntil([&] { return folders_->inside() == 0; });
    }

    std::shared_ptr<SlowFolders> folders_ = std::make_shared<SlowFolders>();
    int changes_ = 0;
    std::unique_ptr<FolderChecks> checks_ = std::make_unique<FolderChecks>(
        [this] { ++changes_; },
        [folders = folders_](const std::string& folder) { return folders->look(folder); },
        std::chrono::milliseconds(0));
};

TEST_F(FolderChecksTest, AFolderIsUnreadableOnceItsCheckSaysSo) {
    checks_->check({"a", "missing"});
    EXPECT_FALSE(checks_->isUnreadable("missing"));
    ASSERT_TRUE(waitUntil([&] { return checks_->isUnreadable("missing"); }));
    EXPECT_FALSE(checks_->isUnreadable("a"));
    EXPECT_EQ(changes_, 1);
    checks_->check({"a"});
    EXPECT_FALSE(checks_->isUnreadable("missing"));
}

TEST_F(FolderChecksTest, AFolderThatDoesNotAnswerHoldsUpNothingAndCountsAsUnreadableLater) {
    checks_->check({"!dead", "missing"});
    ASSERT_TRUE(waitUntil([&] { return checks_->isUnreadable("missing"); }));
    EXPECT_FALSE(checks_->isUnreadable("!dead"));
    checks_->check({"!dead", "missing"});
    EXPECT_TRUE(checks_->isUnreadable("!dead"));
    EXPECT_EQ(folders_->looks("!dead"), 1);  // no second thread is lost in it
    folders_->answer();
    EXPECT_TRUE(waitUntil([&] { return !checks_->isUnreadable("!dead"); }));
}

TEST_F(FolderChecksTest, AFolderThatWasAskedJustBeforeDoesNotCountAsUnreadable) {
    int changes = 0;
    FolderChecks patient(
        [&] { ++changes; },
        [folders = folders_](const std::string& folder) { return folders->look(folder); },
        std::chrono::hours(1));
    patient.check({"!slow"});
    ASSERT_TRUE(waitUntil([&] { return folders_->inside() == 1; }));
    patient.check({"!slow"});  // as panels do that announce an opening twice
    EXPECT_FALSE(patient.isUnreadable("!slow"));
    EXPECT_EQ(changes, 0);
}

TEST_F(FolderChecksTest, OnlySoManyThreadsAreLost) {
    std::vector<std::string> many;
    for (int i = 0; i < 40; ++i) {
        many.push_back("!" + std::to_string(i));
    }
    checks_->check(many);
    EXPECT_TRUE(waitUntil([&] { return folders_->inside() == 16; }));
    checks_->check(many);
    runPending();
    EXPECT_EQ(folders_->inside(), 16);
    folders_->answer();
    EXPECT_TRUE(waitUntil([&] { return folders_->looks("!39") == 1; }));
}

TEST_F(FolderChecksTest, ResultsForAFolderThatWasRemovedOrForNobodyAreDropped) {
    checks_->check({"!missing"});
    ASSERT_TRUE(waitUntil([&] { return folders_->inside() == 1; }));
    checks_->check({});
    folders_->answer();
    ASSERT_TRUE(waitUntil([&] { return folders_->inside() == 0; }));
    runPending();
    EXPECT_EQ(changes_, 0);
    checks_->check({"missing"});
    checks_.reset();
    ASSERT_TRUE(waitUntil([&] { return folders_->looks("missing") == 1; }));
}

TEST(FolderReadableTest, KnowsWhichFoldersCanBeListed) {
    const test::TemporaryDirectory folder;
    folder.createDirectories("ok");
    folder.write("file", "x");
    EXPECT_TRUE(isFolderReadable(folder / "ok"));
    EXPECT_FALSE(isFolderReadable(folder / "none"));
    EXPECT_FALSE(isFolderReadable(folder / "file"));
    chmod((folder / "ok").c_str(), 0);
    const Unprivileged unprivileged;
    EXPECT_FALSE(isFolderReadable(folder / "ok"));
}

}  // namespace
}  // namespace glintmark::platform
