#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "decoder/DecoderServer.h"
#include "decoder/RequestMessage.h"
#include "tests/decoder/ImageFiles.h"
#include "tests/support/WholeFile.h"

namespace glintmark::decoder {
namespace {

using namespace std::chrono_literals;

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

/// True if the process runs and has not entered its sandbox.
bool isWaiting(pid_t process) {
    const std::string status = test::wholeFile("/proc/" + std::to_string(process) + "/status");
    return status.find("\nSeccomp:\t0\n") != std::string::npos;
}

/// The decoder in a separate process. The test is the program.
class DecoderServerTest : public testing::Test {
protected:
    static void SetUpTestSuite() { prctl(PR_SET_CHILD_SUBREAPER, 1); }

    void startDecoder(std::chrono::milliseconds idleTimeout) {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
        program_ = FileDescriptor(ends[0]);
        const FileDescriptor theirs(ends[1]);
        const pid_t starter = fork();
        if (starter == 0) {
            dup2(theirs.get(), decoderSocket);
            close_range(decoderSocket + 1, ~0U, 0);
            _exit(runDecoder({.idleTimeout = idleTimeout}));
        }
        ASSERT_EQ(waitpid(starter, nullptr, 0), starter);
        const auto left = childrenOf(getpid());
        ASSERT_EQ(left.size(), 1U);
        decoder_ = left.front();
    }

    ~DecoderServerTest() override {
        program_ = FileDescriptor();
        if (decoder_ > 0) {
            waitForEnd();
        }
        waitForLeftChildren();
    }

    void waitForEnd() {
        int status = -1;
        EXPECT_EQ(waitpid(decoder_, &status, 0), decoder_);
        EXPECT_EQ(status, 0);
        decoder_ = -1;
    }

    /// Reaps all processes whose parent has ended; the test is their parent then. Blocks until they
    /// have ended.
    static void waitForLeftChildren() {
        while (waitpid(-1, nullptr, 0) > 0) {
        }
    }

    /// The child that waits for the next request, when all other children have ended.
    pid_t spare() const {
        std::vector<pid_t> found;
        do {
            found = childrenOf(decoder_);
        } while (found.size() != 1 || !isWaiting(found.front()));
        return found.front();
    }

    /// Sends a request and returns the reading end of its pipe. Empty if the request cannot be
    /// sent.
    FileDescriptor ask(const Bytes& file) {
        const FileDescriptor encoded(memfd_create("encoded", MFD_CLOEXEC));
        const FileDescriptor pixels(memfd_create("pixels", MFD_CLOEXEC));
        EXPECT_EQ(write(encoded.get(), file.data(), file.size()), std::ssize(file));
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        FileDescriptor reading(ends[0]);
        const FileDescriptor writing(ends[1]);
        const bool sent = sendRequest(program_.get(), {DecodeSlot::small},
                                      {encoded.get(), pixels.get(), writing.get()});
        return sent ? std::move(reading) : FileDescriptor();
    }

    /// All bytes from a pipe.
    static std::vector<std::uint8_t> readAll(const FileDescriptor& pipe) {
        std::vector<std::uint8_t> all;
        std::array<std::uint8_t, 100> bytes{};
        for (;;) {
            pollfd readable{pipe.get(), POLLIN, 0};
            if (poll(&readable, 1, patienceMilliseconds) != 1) {
                return {};
            }
            const ssize_t length = read(pipe.get(), bytes.data(), bytes.size());
            if (length <= 0) {
                return all;
            }
            all.insert(all.end(), bytes.begin(), bytes.begin() + length);
        }
    }

    static bool isDecoded(const FileDescriptor& pipe) {
        const auto received = readAll(pipe);
        if (received.empty() || received.front() != accepted) {
            return false;
        }
        const auto answer = parseAnswer(std::span(received).subspan(1), DecodeSlot::small);
        return answer && answer->status == DecodeAnswer::Status::decoded;
    }

    bool saysGoodbye() const {
        std::uint8_t message = 0;
        pollfd readable{program_.get(), POLLIN, 0};
        return poll(&readable, 1, patienceMilliseconds) == 1 &&
               recv(program_.get(), &message, sizeof message, 0) == 1 && message == goodbye;
    }

    FileDescriptor program_;
    pid_t decoder_ = -1;
    const Bytes good_ = imageFile("rgba8.png");
};

TEST_F(DecoderServerTest, ARequestFromBeforeTheGoodbyeIsServedAndALaterOneFails) {
    startDecoder(100ms);
    ASSERT_TRUE(isDecoded(ask(good_)));
    const pid_t waiting = spare();
    kill(waiting, SIGSTOP);
    const FileDescriptor last = ask(good_);
    ASSERT_TRUE(saysGoodbye());
    kill(waiting, SIGCONT);
    EXPECT_TRUE(isDecoded(last));
    waitForEnd();
    EXPECT_FALSE(ask(good_));
}

TEST_F(DecoderServerTest, ARequestWithoutFreeDescriptorsIsRefusedAndLaterOnesAreServed) {
    startDecoder(1h);
    ASSERT_TRUE(isDecoded(ask(good_)));
    const pid_t waiting = spare();
    rlimit before{};
    const rlimit none{decoderSocket + 1, 1024};
    ASSERT_EQ(prlimit(decoder_, RLIMIT_NOFILE, &none, &before), 0);
    kill(waiting, SIGKILL);
    const FileDescriptor refused = ask(good_);
    EXPECT_TRUE(readAll(refused).empty());
    const rlimit again{1024, 1024};
    ASSERT_EQ(prlimit(decoder_, RLIMIT_NOFILE, &again, nullptr), 0);
    EXPECT_TRUE(isDecoded(ask(good_)));
}

TEST_F(DecoderServerTest, TheDecoderEndsWithTheProgramAndLeavesNoChild) {
    startDecoder(1h);
    const FileDescriptor running = ask(good_);
    program_ = FileDescriptor();
    waitForEnd();
    waitForLeftChildren();
    EXPECT_TRUE(childrenOf(getpid()).empty());
}

}  // namespace
}  // namespace glintmark::decoder
