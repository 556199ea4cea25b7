#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

#include "base/graphics/Image.h"
#include "base/graphics/ImageScaling.h"
#include "base/system/FileDescriptor.h"
#include "linux/images/SandboxedImageDecoder.h"
#include "linux/network/CurlURLSession.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "tests/doubles/InProcessImageDecoder.h"
#include "tests/linux/ProcessState.h"
#include "tests/linux/Waiting.h"
#include "tests/support/DecodeAndWait.h"
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
    SandboxedImageDecoder& decoderOf(const char* helper, const std::string& name = "decoder") {
        helper_ = fs::canonical(directory_.path()) / name;
        fs::copy_file(helper, helper_);
        return restart();
    }
    SandboxedImageDecoder& realDecoder() { return decoderOf(GLINTMARK_IMAGE_DECODER); }
    SandboxedImageDecoder& misbehavingDecoder() { return decoderOf(GLINTMARK_MISBEHAVING_DECODER); }

    /// A decoder whose executable is the shell script `text`.
    SandboxedImageDecoder& scriptedDecoder(const std::string& text) {
        helper_ = fs::path(directory_.path()) / "decoder";
        std::ofstream(helper_) << "#!/bin/sh\n" << text << "\n";
        fs::permissions(helper_, fs::perms::owner_all);
        return restart();
    }

    SandboxedImageDecoder& restart() {
        options_.logDebug = [this](std::string_view line) {
            const std::lock_guard lock(linesMutex_);
            lines_.emplace_back(line);
        };
        decoder_ = std::make_unique<SandboxedImageDecoder>(helper_, session_, options_);
        return *decoder_;
    }

    std::shared_ptr<const Image> decode(const std::string& data) {
        return test::decodeAndWait(*decoder_, data);
    }
    bool decodes(const std::string& data) { return decode(data) != nullptr; }
    bool decodesGoodImage() { return decodes(imageFile("rgba8.png")); }

    std::vector<std::string> lines() {
        const std::lock_guard lock(linesMutex_);
        return lines_;
    }

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

    /// The children of the helper, from proc(5).
    std::vector<pid_t> children() const {
        const std::string id = std::to_string(helpers().front());
        std::ifstream file("/proc/" + id + "/task/" + id + "/children");
        std::vector<pid_t> found;
        for (pid_t child = 0; file >> child;) {
            found.push_back(child);
        }
        return found;
    }
    bool hasChildren(std::size_t count) const {
        return waitFor([&] { return children().size() == count; });
    }

    test::TemporaryDirectory directory_;
    fs::path helper_;
    DecodingOptions options_;
    std::mutex linesMutex_;
    std::vector<std::string> lines_;
    ThreadPoolQueue queue_{"completions", 2};
    CurlURLSession session_{queue_, {.version = "test", .idleTimeout = 1ms}};
    std::unique_ptr<SandboxedImageDecoder> decoder_;
};

TEST_F(SandboxedImageDecoderTest, AnImageArrivesUnchanged) {
    realDecoder();
    const auto image = decode(imageFile("rgba8.png"));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (Size{6, 5}));
    const auto& bitmap = image->bitmap();
    ASSERT_TRUE(bitmap);
    EXPECT_TRUE(bitmap->hasAlpha());
    const auto last = bitmap->pixels().last(4);
    EXPECT_THAT(std::vector<int>(last.begin(), last.end()),
                testing::ElementsAre(200, 200, 200, 225));
}

TEST_F(SandboxedImageDecoderTest, EveryImageDecodesInTheSandboxAsItDoesOutside) {
    SandboxedImageDecoder& decoder = realDecoder();
    doubles::InProcessImageDecoder outside;
    const auto batch = decoder.makeBatch();
    for (const std::string& name : smallImageFiles()) {
        const std::string file = imageFile(name);
        const auto expected = outside.decode(file);
        const auto image = test::decodeAndWait(decoder, file, batch);
        ASSERT_EQ(image != nullptr, expected != nullptr) << name;
        if (image) {
            EXPECT_EQ(image->size(), expected->size()) << name;
            EXPECT_EQ(image->edgeAlphas(), expected->edgeAlphas()) << name;
            EXPECT_TRUE(std::ranges::equal(image->bitmap()->pixels(), expected->bitmap()->pixels()))
                << name;
        }
    }
    EXPECT_THAT(lines(), testing::IsEmpty());
    EXPECT_TRUE(hasChildren(2));  // that of the batch, and the spare one
}

TEST_F(SandboxedImageDecoderTest, BrokenFilesAndBombsAreRefused) {
    realDecoder();
    EXPECT_FALSE(decodes(""));
    EXPECT_FALSE(decodes("x"));
    for (const char* name :
         {"not-an-image.html", "truncated.png", "truncated.avif", "bomb-30000x30000.png",
          "bomb-16384x16384.png", "bomb-65535x65535.gif", "bomb-65535-entries.ico",
          "bomb-20000x20000.tiff", "bomb-scans.jpg", "bomb-65535x65535.bmp"}) {
        EXPECT_FALSE(decodes(imageFile(name))) << name;
    }
    EXPECT_TRUE(decodesGoodImage());
}

/// The picture of a large image in one process and in the sandbox.
void expectSamePicture(const Image& image, const Image& whole) {
    ASSERT_TRUE(image.bitmap());
    const BitmapImageRep expected = scaled(*whole.bitmap(), Image::pictureEdge, Image::pictureEdge);
    EXPECT_EQ(image.size(), whole.size());
    EXPECT_EQ(image.edgeAlphas(), whole.edgeAlphas());
    EXPECT_EQ(image.bitmap()->hasAlpha(), expected.hasAlpha());
    EXPECT_EQ(image.bitmap()->pixelsWide(), Image::pictureEdge);
    EXPECT_TRUE(std::ranges::equal(image.bitmap()->pixels(), expected.pixels()));
}

TEST_F(SandboxedImageDecoderTest, ALargeImageKeepsItsSizeItsEdgesAndItsScaledPicture) {
    realDecoder();
    doubles::InProcessImageDecoder outside;
    const std::string file = imageFile("large-1025x1024.png");
    const auto image = decode(file);
    ASSERT_TRUE(image);
    expectSamePicture(*image, *outside.decodeWhole(file));
}

#ifndef GLINTMARK_SANITIZED  // too slow for the three seconds of a child on a busy machine
TEST_F(SandboxedImageDecoderTest, FiftyMillionPixelsFitTheRoomOfALargeImage) {
    options_.imageTimeout = 1min;
    realDecoder();
    const auto image = decode(imageFile("large-10000x5000.png"));
    ASSERT_TRUE(image);
    EXPECT_EQ(image->size(), (Size{10000, 5000}));
    EXPECT_EQ(image->bitmap()->pixelsWide(), 512);
}

TEST_F(SandboxedImageDecoderTest, ASmallImageWaitsForNoLargeImageOfOtherLinks) {
    options_.imageTimeout = 1min;
    SandboxedImageDecoder& decoder = realDecoder();
    const auto largeDone = std::make_shared<std::atomic<int>>(0);
    std::vector<std::shared_ptr<ImageBatch>> greedy;
    for (int link = 0; link < 4; ++link) {
        greedy.push_back(decoder.makeBatch());
        for (int i = 0; i < 3; ++i) {
            decoder.decode(imageFile("large-10000x5000.png"), greedy.back(),
                           [largeDone](const auto&) { ++*largeDone; });
        }
    }
    EXPECT_TRUE(decode(imageFile("rgba8.png")));
    EXPECT_EQ(*largeDone, 0);
}
#endif

TEST_F(SandboxedImageDecoderTest, LinksThatHaveUsedUpTheirTimeHoldUpNoOther) {
    options_.linkTime = 1s;  // any use leaves less than the second that a child needs
    SandboxedImageDecoder& decoder = realDecoder();
    constexpr int links = 4;
    constexpr int imagesPerLink = 2;
    std::atomic<int> ended = 0;
    std::vector<std::shared_ptr<ImageBatch>> batches;
    for (int link = 0; link < links; ++link) {
        batches.push_back(decoder.makeBatch());
        for (int i = 0; i < imagesPerLink; ++i) {
            decoder.decode(imageFile("large-10000x5000.png"), batches.back(),
                           [&ended](const auto&) { ++ended; });
        }
    }
    EXPECT_TRUE(waitFor([&] { return ended == links * imagesPerLink; })) << ended;
}

TEST_F(SandboxedImageDecoderTest, ImagesOfManyLinksAllArrive) {
    SandboxedImageDecoder& decoder = realDecoder();
    constexpr int links = 12;
    constexpr int imagesPerLink = 5;
    const std::string small = imageFile("rgba8.png");
    const std::string large = imageFile("large-1025x1024.png");
    std::atomic<int> decoded = 0;
    std::atomic<int> done = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < links; ++t) {
        threads.emplace_back([&, t] {
            const auto batch = decoder.makeBatch();
            for (int i = 0; i < imagesPerLink; ++i) {
                decoder.decode((t + i) % imagesPerLink == 0 ? large : small, batch,
                               [&](auto image) {
                                   decoded += image && image->bitmap() ? 1 : 0;
                                   ++done;
                               });
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(waitFor([&] { return done == links * imagesPerLink; }));
    EXPECT_EQ(decoded, links * imagesPerLink);
    EXPECT_EQ(helpers().size(), 1U);
    EXPECT_TRUE(hasChildren(1));  // the spare one
}

TEST_F(SandboxedImageDecoderTest, TheImagesOfALinkShareAChildThatEndsWithTheLink) {
    SandboxedImageDecoder& decoder = realDecoder();
    auto batch = decoder.makeBatch();
    ASSERT_TRUE(test::decodeAndWait(decoder, imageFile("rgba8.png"), batch));
    // At first there may also be the child that tests the formats.
    EXPECT_TRUE(waitFor([&] {
        const std::vector<pid_t> before = children();
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(test::decodeAndWait(decoder, imageFile("rgba8.png"), batch));
        }
        return before.size() == 2 && children() == before;
    }));
    batch.reset();
    EXPECT_TRUE(hasChildren(1));
}

TEST_F(SandboxedImageDecoderTest, NoDescriptorIsLeftOpen) {
    SandboxedImageDecoder& decoder = realDecoder();
    const auto decodeSome = [&] {
        const auto batch = decoder.makeBatch();
        test::decodeAndWait(decoder, imageFile("rgba8.png"), batch);
        test::decodeAndWait(decoder, "no image", batch);
        test::decodeAndWait(decoder, imageFile("large-1025x1024.png"), batch);
    };
    decodeSome();
    ASSERT_TRUE(hasChildren(1));
    // The spare child's descriptors may have arrived or not, in both counts.
    const std::size_t before = openDescriptors();
    constexpr std::size_t rounds = 10;
    for (std::size_t i = 0; i < rounds; ++i) {
        decodeSome();
    }
    EXPECT_TRUE(waitFor([&] { return openDescriptors() < before + rounds; }));
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
    // The standard streams, the socket, and one for the spare child.
    EXPECT_TRUE(
        waitFor([&] { return std::distance(fs::directory_iterator(process / "fd"), {}) == 5; }));
#endif
}

#ifndef GLINTMARK_SANITIZED  // the sanitizers have descriptors
TEST_F(SandboxedImageDecoderTest, AChildHasOnlyItsChannelAndTheExchangeFile) {
    realDecoder();
    ASSERT_TRUE(decodesGoodImage());
    ASSERT_TRUE(hasChildren(1));
    const fs::path process = fs::path("/proc") / std::to_string(children().front());
    EXPECT_TRUE(
        waitFor([&] { return std::distance(fs::directory_iterator(process / "fd"), {}) == 2; }));
    EXPECT_TRUE(waitFor([&] {
        return test::wholeFile(process / "status").find("\nSeccomp:\t2\n") != std::string::npos;
    }));
}
#endif

TEST_F(SandboxedImageDecoderTest, AKilledChildIsReplaced) {
    realDecoder();
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(decodesGoodImage()) << round;
        ASSERT_TRUE(hasChildren(1));
        const pid_t helper = helpers().front();
        killAndWait(children().front());
        ASSERT_TRUE(decodesGoodImage()) << round;
        EXPECT_EQ(helpers(), std::vector{helper});
    }
    EXPECT_THAT(lines(), testing::IsEmpty());
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

TEST_F(SandboxedImageDecoderTest, ABatchMayOutliveItsDecoder) {
    const auto batch = realDecoder().makeBatch();
    decoder_.reset();
}

TEST_F(SandboxedImageDecoderTest, AnImageThatWaitsMayBeTheLastToHoldItsBatch) {
    class StoppedLoop final : public SourceLoop {
        bool attach(std::shared_ptr<LoopSource> /*source*/) override { return true; }
        void wake() override {}
    };
    StoppedLoop stopped;
    SandboxedImageDecoder decoder(GLINTMARK_IMAGE_DECODER, stopped);
    auto batch = decoder.makeBatch();
    bool completed = false;
    decoder.decode("image", batch,
                   [batch, &completed](const auto& /*image*/) { completed = true; });
    batch.reset();
    EXPECT_FALSE(completed);
}

TEST_F(SandboxedImageDecoderTest, AnIdleDecoderEndsItsThreadAndItsProcess) {
    options_.idleTimeout = 50ms;
    realDecoder();
    for (int round = 0; round < 4; ++round) {
        EXPECT_TRUE(decodesGoodImage()) << round;
        EXPECT_TRUE(helpersAreGone());
        EXPECT_TRUE(waitFor([] { return threadsNamed("http") == 0; }));
    }
}

TEST_F(SandboxedImageDecoderTest, AnUpgradeThatReplacesTheHelperDoesNoHarm) {
    options_.idleTimeout = 50ms;
    realDecoder();
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
    for (int round = 0; round < 3; ++round) {
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
    const auto batch = decoder_->makeBatch();
    EXPECT_FALSE(test::decodeAndWait(*decoder_, GetParam(), batch));
    EXPECT_TRUE(test::decodeAndWait(*decoder_, imageFile("rgba8.png"), batch));  // another child
    EXPECT_FALSE(fs::exists("/tmp/glintmark-escaped"));
}

std::string testName(const testing::TestParamInfo<std::string>& info) {
    std::string name = info.param;
    std::ranges::replace(name, ' ', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Forbidden, MisdeedTest,
                         testing::Values("open", "create", "socket", "execve", "fork", "kill",
                                         "write elsewhere", "close", "executable memory",
                                         "raise limit", "long file"),
                         testName);
INSTANTIATE_TEST_SUITE_P(Died, MisdeedTest, testing::Values("crash", "fault", "end", "spin"),
                         testName);
INSTANTIATE_TEST_SUITE_P(Lied, MisdeedTest,
                         testing::Values("answer half", "answer for ever", "ask for ever",
                                         "negative width", "too wide", "too many pixels",
                                         "odd boolean", "unknown status", "always too large"),
                         testName);
#ifndef GLINTMARK_SANITIZED  // sanitized builds do not limit addresses
INSTANTIATE_TEST_SUITE_P(Greedy, MisdeedTest, testing::Values("eat memory"), testName);
#endif

TEST_F(SandboxedImageDecoderTest, ALibraryMayWarn) {
    misbehavingDecoder();
    EXPECT_TRUE(decodes("warn"));
}

TEST_F(SandboxedImageDecoderTest, ASecondAnswerToOneImageEndsTheChild) {
    SandboxedImageDecoder& decoder = misbehavingDecoder();
    const auto batch = decoder.makeBatch();
    test::decodeAndWait(decoder, "answer twice", batch);
    EXPECT_TRUE(hasChildren(1));
    EXPECT_TRUE(test::decodeAndWait(decoder, imageFile("rgba8.png"), batch));
}

TEST_F(SandboxedImageDecoderTest, ALinkThatEndsTwoChildrenGetsNoThird) {
    SandboxedImageDecoder& decoder = misbehavingDecoder();
    const auto batch = decoder.makeBatch();
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(test::decodeAndWait(decoder, "end", batch));
    }
    EXPECT_FALSE(test::decodeAndWait(decoder, imageFile("rgba8.png"), batch));
    EXPECT_TRUE(decodesGoodImage());  // of another link
}

#ifndef GLINTMARK_SANITIZED  // a sanitizer turns the signal into its own exit
TEST_F(SandboxedImageDecoderTest, TheSignalAndTheRefusedCallAreLogged) {
    misbehavingDecoder();
    EXPECT_FALSE(decodes("socket"));
    EXPECT_TRUE(waitFor([this] { return !lines().empty(); }));
    EXPECT_FALSE(decodes("fault"));
    EXPECT_TRUE(waitFor([this] { return lines().size() == 2; }));
    EXPECT_THAT(lines(), testing::ElementsAre(
                             "A child of the image decoder was ended by signal 31, because of the "
                             "system call " +
                                 std::to_string(SYS_socket),
                             "A child of the image decoder was ended by signal 11"));
}

TEST_F(SandboxedImageDecoderTest, AfterSeveralCrashesAnotherHelperIsExecuted) {
    misbehavingDecoder();
    ASSERT_TRUE(decodesGoodImage());
    const std::vector<pid_t> before = helpers();
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(decodes("fault"));
    }
    EXPECT_EQ(helpers(), before);
    EXPECT_FALSE(decodes("fault"));
    EXPECT_TRUE(decodesGoodImage());
    EXPECT_TRUE(waitFor([&] { return helpers().size() == 1; }));
    EXPECT_NE(helpers(), before);
}

TEST_F(SandboxedImageDecoderTest, CrashesThatGoOnLeadToPauses) {
    misbehavingDecoder();
    for (int i = 0; i < 78; ++i) {
        EXPECT_FALSE(decodes("fault"));
    }
    EXPECT_FALSE(decodesGoodImage());
    EXPECT_LE(lines().size(), 12U);
}
#endif

TEST_F(SandboxedImageDecoderTest, AFormatThatTheSandboxBreaksIsLoggedAndTheOthersGoOn) {
    decoderOf(GLINTMARK_MISBEHAVING_DECODER, "broken-gif");
    EXPECT_TRUE(decodesGoodImage());
    EXPECT_TRUE(waitFor([this] { return !lines().empty(); }));
    EXPECT_THAT(lines(),
                testing::ElementsAre("The sandbox breaks the image decoder's sample palette.gif"));
    ASSERT_TRUE(hasChildren(1));
    killAndWait(children().front());  // it was forked before the format was known to be broken
    const auto batch = decoder_->makeBatch();
    EXPECT_FALSE(test::decodeAndWait(*decoder_, imageFile("animated.gif"), batch));
    EXPECT_TRUE(test::decodeAndWait(*decoder_, imageFile("rgba8.png"), batch));
    EXPECT_EQ(lines().size(), 1U);
}

TEST_F(SandboxedImageDecoderTest, WithoutAHelperNothingDecodes) {
    helper_ = "/nowhere/decoder";
    restart();
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
    options_.helperTimeout = 50ms;
    decoderOf(GLINTMARK_SILENT_DECODER);
    EXPECT_FALSE(decodesGoodImage());
    EXPECT_TRUE(helpersAreGone());
}

TEST_F(SandboxedImageDecoderTest, AProcessThatHangsBeforeItForksTheHelperIsEndedAndReaped) {
    options_.helperTimeout = 500ms;
    const fs::path started = fs::path(directory_.path()) / "started";
    scriptedDecoder("echo $$ > " + started.string() + "; exec sleep 1000");
    EXPECT_FALSE(decodesGoodImage());
    pid_t process = 0;
    std::ifstream(started) >> process;
    ASSERT_GT(process, 0);
    EXPECT_EQ(kill(process, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

}  // namespace
}  // namespace glintmark::platform
