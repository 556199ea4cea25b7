#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "base/graphics/Image.h"
#include "base/system/FileDescriptor.h"
#include "linux/images/SandboxedImageDecoder.h"
#include "tests/doubles/InProcessImageDecoder.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/Waiting.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WholeFile.h"

namespace glintmark::platform {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

std::string imageFile(const std::string& name) {
    return test::wholeFile(GLINTMARK_TEST_DATA "/images/" + name);
}

/// The test images, broken ones among them, without those that take much time or memory.
std::vector<std::string> smallImageFiles() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(GLINTMARK_TEST_DATA "/images")) {
        std::string name = entry.path().filename();
        if (!name.starts_with("bomb-") && !name.starts_with("large-")) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

/// The processes that run the executable at `path`.
std::vector<pid_t> processesOf(const fs::path& path) {
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::error_code error;
        if (fs::read_symlink(entry.path() / "exe", error) == path) {
            found.push_back(std::stoi(entry.path().filename()));
        }
    }
    return found;
}

/// The fourth field of proc(5)'s "stat"; the names of these processes have no spaces. Negative if
/// the process has ended.
pid_t parentOf(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string skipped;
    pid_t parent = -1;
    file >> skipped >> skipped >> skipped >> parent;
    return parent;
}

/// True if the process runs outside the sandbox, which a child enters when it has its image.
bool isWaiting(pid_t process) {
    const fs::path status = fs::path("/proc") / std::to_string(process) / "status";
    return test::wholeFile(status).find("\nSeccomp:\t0\n") != std::string::npos;
}

/// Returns when the process has ended with all its threads. Its parent may not have reaped it yet.
/// See pidfd_open(2).
void killAndWait(pid_t process) {
    const FileDescriptor handle(static_cast<int>(syscall(SYS_pidfd_open, process, 0)));
    kill(process, SIGKILL);
    pollfd ended{handle.get(), POLLIN, 0};
    ASSERT_EQ(poll(&ended, 1, 10'000), 1);
}

class SandboxedImageDecoderTest : public testing::Test {
protected:
    /// A decoder with a copy of `helper` as its executable, which distinguishes its processes from
    /// those of other tests.
    SandboxedImageDecoder& decoderOf(const char* helper) {
        helper_ = fs::canonical(directory_.path()) / "decoder";
        fs::copy_file(helper, helper_);
        decoder_ = std::make_unique<SandboxedImageDecoder>(helper_);
        return *decoder_;
    }
    SandboxedImageDecoder& realDecoder() { return decoderOf(GLINTMARK_IMAGE_DECODER); }
    SandboxedImageDecoder& misbehavingDecoder() { return decoderOf(GLINTMARK_MISBEHAVING_DECODER); }

    /// A decoder whose executable is the shell script `text`.
    SandboxedImageDecoder& scriptedDecoder(const std::string& text) {
        helper_ = fs::path(directory_.path()) / "decoder";
        std::ofstream(helper_) << "#!/bin/sh\n" << text << "\n";
        fs::permissions(helper_, fs::perms::owner_all);
        decoder_ = std::make_unique<SandboxedImageDecoder>(helper_);
        return *decoder_;
    }

    bool decodes(const std::string& data) { return decoder_->decode(data) != nullptr; }
    bool decodesGoodImage() { return decodes(imageFile("rgba8.png")); }

    /// The decoder's processes without their children.
    std::vector<pid_t> helpers() const {
        const std::vector<pid_t> all = processesOf(helper_);
        std::vector<pid_t> found;
        std::ranges::copy_if(all, std::back_inserter(found), [&](pid_t process) {
            const pid_t parent = parentOf(process);
            return parent >= 0 && std::ranges::find(all, parent) == all.end();
        });
        return found;
    }
    bool helpersAreGone() const {
        return waitFor([this] { return processesOf(helper_).empty(); });
    }

    /// The child that waits for the next image, when all other children have ended.
    std::optional<pid_t> spareChild() const {
        std::optional<pid_t> spare;
        waitFor([&] {
            const std::vector<pid_t> all = processesOf(helper_);
            const auto found = std::ranges::find_if(all, [&](pid_t process) {
                return std::ranges::count(all, parentOf(process)) == 1 && isWaiting(process);
            });
            if (all.size() == 2 && found != all.end()) {
                spare = *found;
            }
            return spare.has_value();
        });
        return spare;
    }

    test::TemporaryDirectory directory_;
    fs::path helper_;
    std::unique_ptr<SandboxedImageDecoder> decoder_;
};

TEST_F(SandboxedImageDecoderTest, AnImageArrivesUnchanged) {
    const auto image = realDecoder().decode(imageFile("rgba8.png"));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (Size{6, 5}));
    const auto bitmap = image->bitmap();
    ASSERT_TRUE(bitmap);
    EXPECT_TRUE(bitmap->hasAlpha());
    const auto last = bitmap->pixels().last(4);
    EXPECT_THAT(std::vector<int>(last.begin(), last.end()),
                testing::ElementsAre(200, 200, 200, 225));
}

TEST_F(SandboxedImageDecoderTest, EveryImageDecodesInTheSandboxAsItDoesOutside) {
    SandboxedImageDecoder& decoder = realDecoder();
    doubles::InProcessImageDecoder outside;
    for (const std::string& name : smallImageFiles()) {
        const std::string file = imageFile(name);
        const auto expected = outside.decode(file);
        const auto image = decoder.decode(file);
        ASSERT_EQ(image != nullptr, expected != nullptr) << name;
        if (image) {
            EXPECT_EQ(image->size(), expected->size()) << name;
            EXPECT_TRUE(std::ranges::equal(image->bitmap()->pixels(), expected->bitmap()->pixels()))
                << name;
        }
    }
}

TEST_F(SandboxedImageDecoderTest, BrokenFilesAndBombsAreRefused) {
    SandboxedImageDecoder& decoder = realDecoder();
    EXPECT_FALSE(decoder.decode(""));
    EXPECT_FALSE(decoder.decode("x"));
    for (const char* name :
         {"not-an-image.html", "truncated.png", "truncated.avif", "bomb-30000x30000.png",
          "bomb-16384x16384.png", "bomb-65535x65535.gif", "bomb-65535-entries.ico",
          "bomb-20000x20000.tiff", "bomb-scans.jpg", "bomb-65535x65535.bmp"}) {
        EXPECT_FALSE(decoder.decode(imageFile(name))) << name;
    }
    EXPECT_TRUE(decodesGoodImage());
}

TEST_F(SandboxedImageDecoderTest, ALargeImageIsDecodedAgainForEachUse) {
    const auto image = realDecoder().decode(imageFile("large-1025x1024.png"));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (Size{1025, 1024}));
    const auto first = image->bitmap();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->pixelsWide(), 1025);
    const std::uint8_t* before = first->pixels().data();
    const auto second = image->bitmap();  // waits for a while, since the first is kept
    ASSERT_TRUE(second);
    EXPECT_NE(second->pixels().data(), before);
}

#ifndef GLINTMARK_SANITIZED  // too slow for the five seconds of a child on a busy machine
TEST_F(SandboxedImageDecoderTest, FiftyMillionPixelsFitTheLargeSlot) {
    const auto image = realDecoder().decode(imageFile("large-10000x5000.png"));
    ASSERT_TRUE(image);
    const auto bitmap = image->bitmap();
    ASSERT_TRUE(bitmap);
    EXPECT_EQ(bitmap->pixels().size(), 200'000'000U);
    EXPECT_EQ(bitmap->alphaAt(9999, 4999), 1.0);
}
#endif

TEST_F(SandboxedImageDecoderTest, ALargeImageOutlivesItsDecoder) {
    const auto image = realDecoder().decode(imageFile("large-1025x1024.png"));
    decoder_.reset();
    ASSERT_TRUE(image);
    EXPECT_TRUE(image->bitmap());
}

TEST_F(SandboxedImageDecoderTest, SeveralThreadsDecodeAtOnce) {
    SandboxedImageDecoder& decoder = realDecoder();
    const std::string small = imageFile("rgba8.png");
    const std::string large = imageFile("large-1025x1024.png");
    std::atomic<int> decoded = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 5; ++i) {
                const auto image = decoder.decode((t + i) % 5 == 0 ? large : small);
                if (image && image->bitmap()) {
                    ++decoded;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(decoded, 30);
    EXPECT_EQ(helpers().size(), 1U);
}

TEST_F(SandboxedImageDecoderTest, NoDescriptorIsLeftOpen) {
    SandboxedImageDecoder& decoder = realDecoder();
    ASSERT_TRUE(decodesGoodImage());
    const std::size_t before = openDescriptors();
    const auto kept = decoder.decode(imageFile("large-1025x1024.png"));
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(decodesGoodImage());
        EXPECT_FALSE(decodes("no image"));
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(SandboxedImageDecoderTest, TheHelperHasOnlyItsSocket) {
    realDecoder();
    ASSERT_TRUE(decodesGoodImage());
    ASSERT_EQ(helpers().size(), 1U);
    const fs::path process = fs::path("/proc") / std::to_string(helpers().front());
    EXPECT_EQ(test::wholeFile(process / "environ"), "");
    EXPECT_EQ(fs::read_symlink(process / "cwd"), "/");
    EXPECT_EQ(fs::read_symlink(process / "fd/0"), "/dev/null");
    EXPECT_TRUE(fs::read_symlink(process / "fd/3").string().starts_with("socket:"));
#ifndef GLINTMARK_SANITIZED  // the sanitizers have a thread and descriptors
    EXPECT_EQ(std::distance(fs::directory_iterator(process / "task"), {}), 1);
    // The standard streams, the socket, and two for the waiting child. Until the previous child has
    // been reaped there is one more for it.
    EXPECT_TRUE(
        waitFor([&] { return std::distance(fs::directory_iterator(process / "fd"), {}) == 6; }));
#endif
}

#ifndef GLINTMARK_SANITIZED  // the sanitizers have descriptors
TEST_F(SandboxedImageDecoderTest, TheWaitingChildHasOnlyTheSocketAndItsChannel) {
    realDecoder();
    ASSERT_TRUE(decodesGoodImage());
    const auto spare = spareChild();
    ASSERT_TRUE(spare);
    const fs::path process = fs::path("/proc") / std::to_string(*spare);
    EXPECT_TRUE(
        waitFor([&] { return std::distance(fs::directory_iterator(process / "fd"), {}) == 5; }));
}
#endif

TEST_F(SandboxedImageDecoderTest, AKilledWaitingChildIsReplaced) {
    realDecoder();
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(decodesGoodImage()) << round;
        const auto spare = spareChild();
        ASSERT_TRUE(spare);
        const pid_t helper = helpers().front();
        killAndWait(*spare);
        ASSERT_TRUE(decodesGoodImage()) << round;
        EXPECT_EQ(helpers(), std::vector{helper});
    }
}

TEST_F(SandboxedImageDecoderTest, AChildThatDoesNotExitDelaysALargeImageUntilItIsKilled) {
    misbehavingDecoder();
    EXPECT_FALSE(decodes("close and stay"));
    EXPECT_TRUE(decodesGoodImage());
    EXPECT_TRUE(decodes(imageFile("large-1025x1024.png")));
}

TEST_F(SandboxedImageDecoderTest, TheProgramNeverHasToReapTheHelper) {
    realDecoder();
    ASSERT_TRUE(decodesGoodImage());
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(SandboxedImageDecoderTest, TheHelperEndsWhenTheDecoderIsDestroyed) {
    realDecoder();
    ASSERT_TRUE(decodesGoodImage());
    EXPECT_EQ(helpers().size(), 1U);
    decoder_.reset();
    EXPECT_TRUE(helpersAreGone());
}

TEST_F(SandboxedImageDecoderTest, AnIdleHelperEndsAndTheNextImageStartsAnother) {
    misbehavingDecoder();  // its helper ends after 300 ms
    for (int round = 0; round < 4; ++round) {
        EXPECT_TRUE(decodesGoodImage()) << round;
        EXPECT_TRUE(helpersAreGone());
    }
}

TEST_F(SandboxedImageDecoderTest, AnUpgradeThatReplacesTheHelperDoesNoHarm) {
    misbehavingDecoder();  // its helper ends after 300 ms
    ASSERT_TRUE(decodesGoodImage());
    ASSERT_TRUE(helpersAreGone());
    fs::remove(helper_);
    fs::copy_file("/bin/false", helper_);
    EXPECT_TRUE(decodesGoodImage());
    fs::remove(helper_);
    EXPECT_TRUE(decodesGoodImage());
}

TEST_F(SandboxedImageDecoderTest, AKilledHelperIsStartedAgain) {
    realDecoder();
    for (int round = 0; round < 4; ++round) {
        ASSERT_TRUE(decodesGoodImage()) << round;
        ASSERT_EQ(helpers().size(), 1U);
        kill(helpers().front(), SIGKILL);
        ASSERT_TRUE(helpersAreGone());
    }
}

class MisdeedTest : public SandboxedImageDecoderTest,
                    public testing::WithParamInterface<std::string> {};

TEST_P(MisdeedTest, YieldsNoImageAndDoesNoHarm) {
    misbehavingDecoder();
    EXPECT_FALSE(decodes(GetParam()));
    EXPECT_TRUE(decodesGoodImage());
    EXPECT_FALSE(fs::exists("/tmp/glintmark-escaped"));
}

std::string testName(const testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    std::ranges::replace(name, ' ', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Forbidden, MisdeedTest,
                         testing::Values("open", "create", "socket", "execve", "fork", "kill",
                                         "write elsewhere", "executable memory", "long file"),
                         testName);
INSTANTIATE_TEST_SUITE_P(Died, MisdeedTest, testing::Values("crash", "end", "spin"), testName);
INSTANTIATE_TEST_SUITE_P(Lied, MisdeedTest,
                         testing::Values("answer half", "answer twice", "answer for ever",
                                         "more pixels than there are", "negative width", "too wide",
                                         "odd boolean", "unknown status", "always too large"),
                         testName);
#ifndef GLINTMARK_SANITIZED  // sanitized builds do not limit addresses
INSTANTIATE_TEST_SUITE_P(Greedy, MisdeedTest, testing::Values("eat memory"), testName);
#endif

TEST_F(SandboxedImageDecoderTest, ALibraryMayWarn) {
    misbehavingDecoder();
    EXPECT_TRUE(decodes("warn"));
}

TEST_F(SandboxedImageDecoderTest, WithoutAHelperNothingDecodes) {
    decoder_ = std::make_unique<SandboxedImageDecoder>("/nowhere/decoder");
    EXPECT_FALSE(decodesGoodImage());
    scriptedDecoder("exit 1");
    EXPECT_FALSE(decodesGoodImage());
}

TEST_F(SandboxedImageDecoderTest, AHelperThatKeepsDyingIsStartedRarely) {
    const fs::path starts = fs::path(directory_.path()) / "starts";
    scriptedDecoder("echo >> " + starts.string());
    for (int i = 0; i < 50; ++i) {
        EXPECT_FALSE(decodesGoodImage());
    }
    const std::size_t count = test::wholeFile(starts).size();
    EXPECT_GE(count, 2U);
    EXPECT_LE(count, 8U);  // few, however long the loop took
}

TEST_F(SandboxedImageDecoderTest, AHelperThatDoesNotAnswerIsAbandoned) {
    decoderOf(GLINTMARK_SILENT_DECODER);
    decoder_ = std::make_unique<SandboxedImageDecoder>(helper_, 50ms);
    EXPECT_FALSE(decodesGoodImage());
    EXPECT_TRUE(helpersAreGone());
}

}  // namespace
}  // namespace glintmark::platform
