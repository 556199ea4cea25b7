#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <set>

#include "base/system/FilePath.h"
#include "linux/files/PosixFileManager.h"
#include "linux/watching/InotifyEventStream.h"
#include "tests/linux/watching/EventStreamFixture.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;

/// Finds files as the watcher does: lists each reported directory, and no other.
class InotifyEventStreamStressTest : public EventStreamFixture {
protected:
    void watchAndList() {
        stream_ = InotifyEventStream::make(
            std::vector{directory_.path("links")}, 20ms,
            [this](std::span<const DirectoryEvent> events) {
                for (const auto& event : events) {
                    list(event.path);
                }
            },
            log_);
        ASSERT_NE(stream_, nullptr);
        stream_->setDispatchQueue(queue_);
        EXPECT_TRUE(stream_->start());
    }

    void list(const std::string& path) {
        const std::lock_guard lock(mutex_);
        files_.contentsOfDirectory(path, [&](std::string_view name) {
            if (name.ends_with(".webloc")) {
                found_.insert(appendPathComponent(path, name));
            }
        });
    }

    std::size_t found() {
        const std::lock_guard lock(mutex_);
        return found_.size();
    }

    void create(const std::string& name) { directory_.write(name); }

    PosixFileManager files_;
    std::mutex mutex_;
    std::set<std::string> found_;
};

TEST_F(InotifyEventStreamStressTest, FilesAtTheBottomOfPathsMadeAtOnceAreAllFound) {
    constexpr std::size_t rounds = 1000;
    directory_.createDirectories("links");
    watchAndList();
    for (std::size_t i = 0; i < rounds; ++i) {
        const auto path = "links/" + std::to_string(i) + "/a/b/c";
        directory_.createDirectories(path);
        create(path + "/x.webloc");
    }
    EXPECT_TRUE(waitFor([this] { return found() == rounds; })) << found();
}

TEST_F(InotifyEventStreamStressTest, AllFilesOfABurstInManyDirectoriesAreFound) {
    constexpr std::size_t directories = 1000;
    constexpr std::size_t filesInEach = 20;
    directory_.createDirectories("links");
    watchAndList();
    for (std::size_t i = 0; i < directories; ++i) {
        directory_.createDirectories("links/" + std::to_string(i));
    }
    for (std::size_t file = 0; file < filesInEach; ++file) {
        for (std::size_t i = 0; i < directories; ++i) {
            create("links/" + std::to_string(i) + "/" + std::to_string(file) + ".webloc");
        }
    }
    EXPECT_TRUE(waitFor([this] { return found() == directories * filesInEach; })) << found();
}

TEST_F(InotifyEventStreamStressTest, FilesInMovedDirectoriesAreAllFound) {
    constexpr std::size_t rounds = 300;
    directory_.createDirectories("links/rest");
    watchAndList();
    for (std::size_t i = 0; i < rounds; ++i) {
        const auto number = std::to_string(i);
        directory_.createDirectories("links/made-" + number + "/a");
        create("links/made-" + number + "/a/x.webloc");
        directory_.move("links/made-" + number, "links/rest/moved-" + number);
        create("links/rest/moved-" + number + "/a/y.webloc");
    }
    EXPECT_TRUE(waitFor([this] {
        const std::lock_guard lock(mutex_);
        for (std::size_t i = 0; i < rounds; ++i) {
            const auto path = directory_.path("links/rest/moved-" + std::to_string(i) + "/a/");
            if (!found_.contains(path + "x.webloc") || !found_.contains(path + "y.webloc")) {
                return false;
            }
        }
        return true;
    }));
}

}  // namespace
}  // namespace glintmark::platform
