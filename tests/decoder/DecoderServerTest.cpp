#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "decoder/DecoderServer.h"
#include "decoder/DescriptorMessage.h"
#include "tests/decoder/ImageFiles.h"

namespace glintmark::decoder {
namespace {

using Kind = HelperNotice::Kind;

constexpr int patienceMilliseconds = 60'000;  // only a failing test waits that long

std::vector<pid_t> childrenOf(pid_t process) {
    const std::string id = std::to_string(process);
    std::ifstream file("/proc/" + id + "/task/" + id + "/children");
    std::vector<pid_t> found;
    for (pid_t child = 0; file >> child;) {
        found.push_back(child);
    }
    return found;
}

/// The helper in a separate process. The test is the program.
class DecoderServerTest : public testing::Test {
protected:
    struct Notice : HelperNotice {
        NoticeDescriptors descriptors;
    };

    static void SetUpTestSuite() { prctl(PR_SET_CHILD_SUBREAPER, 1); }

    DecoderServerTest() {
        SocketPair sockets;
        const pid_t starter = fork();
        if (starter == 0) {
            dup2(sockets.theirs.get(), helperSocket);
            close_range(helperSocket + 1, ~0U, 0);
            _exit(runDecoder());
        }
        program_ = std::move(sockets.ours);
        EXPECT_EQ(waitpid(starter, nullptr, 0), starter);
        const auto left = childrenOf(getpid());
        EXPECT_EQ(left.size(), 1U);
        helper_ = left.front();
    }

    ~DecoderServerTest() override {
        program_ = {};
        int status = -1;
        EXPECT_EQ(waitpid(helper_, &status, 0), helper_);
        EXPECT_EQ(status, 0);
        // The test is the parent of all processes that are left. They end, too.
        while (waitpid(-1, nullptr, 0) > 0) {
        }
    }

    /// The next notice. A notice of kind 0 if none comes.
    Notice nextNotice() {
        Notice notice{};
        notice.kind = {};
        pollfd readable{program_.get(), POLLIN, 0};
        if (poll(&readable, 1, patienceMilliseconds) == 1) {
            HelperNotice& part = notice;
            receiveMessage(program_.get(), std::as_writable_bytes(std::span(&part, 1)),
                           notice.descriptors);
        }
        return notice;
    }

    void order(HelperOrder::Kind kind, std::uint32_t child = 0) const {
        sendMessage(program_.get(), HelperOrder{kind, child, 0});
    }

    /// Lets the child of `ready` decode `file`.
    static DecodeAnswer answerOf(const Notice& ready, const Bytes& file) {
        EXPECT_EQ(pwrite(ready.descriptors[1].get(), file.data(), file.size(), encodedOffset),
                  std::ssize(file));
        sendMessage(ready.descriptors[0].get(), DecodeRequest{file.size()});
        pollfd readable{ready.descriptors[0].get(), POLLIN, 0};
        EXPECT_EQ(poll(&readable, 1, patienceMilliseconds), 1);
        DecodeAnswer answer;
        NoticeDescriptors none;
        receiveMessage(ready.descriptors[0].get(), std::as_writable_bytes(std::span(&answer, 1)),
                       none);
        return answer;
    }

    FileDescriptor program_;
    pid_t helper_ = -1;
    const Bytes good_ = imageFile("rgba8.png");
};

TEST_F(DecoderServerTest, AChildIsReadyWithoutAnOrderAndDecodesSeveralImages) {
    const Notice ready = nextNotice();
    ASSERT_EQ(ready.kind, Kind::ready);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(answerOf(ready, good_).status, DecodeAnswer::Status::decoded);
    }
}

TEST_F(DecoderServerTest, EachOrderForksAnotherChild) {
    const Notice first = nextNotice();
    order(HelperOrder::Kind::fork);
    const Notice second = nextNotice();
    ASSERT_EQ(second.kind, Kind::ready);
    EXPECT_NE(first.child, second.child);
    EXPECT_EQ(answerOf(second, good_).status, DecodeAnswer::Status::decoded);
    EXPECT_EQ(answerOf(first, good_).status, DecodeAnswer::Status::decoded);
}

TEST_F(DecoderServerTest, AChildEndsWhenItsChannelIsClosed) {
    Notice ready = nextNotice();
    ready.descriptors[0] = {};
    const Notice ended = nextNotice();
    EXPECT_EQ(ended.kind, Kind::ended);
    EXPECT_EQ(ended.child, ready.child);
    EXPECT_EQ(ended.waitStatus, 0);
}

TEST_F(DecoderServerTest, AKilledChildIsReaped) {
    const Notice ready = nextNotice();
    ASSERT_EQ(answerOf(ready, good_).status, DecodeAnswer::Status::decoded);
    order(HelperOrder::Kind::kill, ready.child);
    const Notice ended = nextNotice();
    EXPECT_EQ(ended.kind, Kind::ended);
    EXPECT_TRUE(WIFSIGNALED(ended.waitStatus));
    EXPECT_GT(ended.cpuMicroseconds, 0U);
    while (!childrenOf(helper_).empty()) {  // the child that tests the formats may still run
        poll(nullptr, 0, 1);
    }
}

TEST_F(DecoderServerTest, AReplacedChildEndsAndAnotherIsForked) {
    const Notice first = nextNotice();
    order(HelperOrder::Kind::replace, first.child);
    std::array<Notice, 2> notices{nextNotice(), nextNotice()};
    if (notices[0].kind == Kind::ended) {
        std::swap(notices[0], notices[1]);
    }
    EXPECT_EQ(notices[0].kind, Kind::ready);
    EXPECT_EQ(notices[1].kind, Kind::ended);
    EXPECT_EQ(notices[1].child, first.child);
    EXPECT_EQ(answerOf(notices[0], good_).status, DecodeAnswer::Status::decoded);
}

TEST_F(DecoderServerTest, OrdersForUnknownChildrenAreIgnored) {
    const Notice ready = nextNotice();
    order(HelperOrder::Kind::kill, ready.child + 1);
    order(HelperOrder::Kind::addRoom, ready.child + 1);
    EXPECT_EQ(answerOf(ready, good_).status, DecodeAnswer::Status::decoded);
}

TEST_F(DecoderServerTest, RoomIsAddedOnOrder) {
    const Notice ready = nextNotice();
    order(HelperOrder::Kind::addRoom, ready.child);
    EXPECT_EQ(nextNotice().kind, Kind::roomAdded);
}

}  // namespace
}  // namespace glintmark::decoder
