#include "platform/image/DecoderServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/image/SpareChild.h"
#include "platform/image/TaskReceiver.h"
#include "platform/image/WarmUp.h"

namespace glintmark::platform::image {

namespace {

using Clock = std::chrono::steady_clock;

// As many as the program asks for at a time; further requests wait in the socket.
constexpr std::size_t maximumChildren = 2;

std::size_t mappedBytes() {
    const FileDescriptor statistics(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
    std::array<char, 64> text{};
    if (!statistics || read(statistics.get(), text.data(), text.size() - 1) <= 0) return 0;
    unsigned long pages = 0;  // proc(5): the first number
    for (std::size_t i = 0; text[i] >= '0' && text[i] <= '9'; ++i) {
        pages = pages * 10 + static_cast<unsigned long>(text[i] - '0');
    }
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

int millisecondsUntil(Clock::time_point when) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

class Server {
public:
    Server(const DecoderServerOptions& options, std::optional<Sandbox> sandbox)
        : options_(options), sandbox_(std::move(sandbox)), mappedBefore_(mappedBytes()) {}

    void serve() {
        idleSince_ = Clock::now();
        while (wait()) {
        }
        for (const Child& child : children_) kill(child.process.pid, SIGKILL);
    }

private:
    struct Child {
        ForkedProcess process;
        Clock::time_point deadline;
        DecodeSlot slot;
    };

    /// Waits for one thing to happen and deals with it. False when there is nothing more to do.
    bool wait() {
        std::vector<pollfd> watched;
        for (const Child& child : children_) {
            watched.push_back({child.process.descriptor.get(), POLLIN, 0});
        }
        const bool listens = !waiting_ && hasRoom();
        watched.push_back({decoderSocket, static_cast<short>(listens ? POLLIN : 0), 0});
        poll(watched.data(), watched.size(), millisecondsUntil(nextDeadline()));

        const int heard = watched.back().revents;
        endAndReap();
        // Nobody waits for an answer any more.
        if ((heard & POLLHUP) != 0) return false;
        if ((heard & POLLIN) != 0 && !takeRequest()) return false;
        startWaiting();
        if (!isIdleForLong()) return true;
        sayGoodbye();
        return false;
    }

    Clock::time_point nextDeadline() const {
        if (children_.empty()) return idleSince_ + options_.idleLimit;
        return children_.front().deadline;  // the oldest
    }

    bool isIdleForLong() const {
        return children_.empty() && Clock::now() >= idleSince_ + options_.idleLimit;
    }

    // A request that arrives after this is lost: the program then sees that it was not accepted,
    // and by this message that nothing died.
    static void sayGoodbye() {
        send(decoderSocket, &goodbye, sizeof goodbye, MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    // A child may have answered and still have its memory, or be one that was taken over and stays:
    // what all have together is bounded here as well as in the program.
    bool hasRoom() const {
        return children_.size() < maximumChildren &&
               std::ranges::none_of(
                   children_, [](const Child& child) { return child.slot == DecodeSlot::large; });
    }

    bool takeRequest() {
        DecodeTask task;
        switch (receiveTask(decoderSocket, task, MSG_DONTWAIT)) {
            case Received::task:
                waiting_ = std::move(task);
                return true;
            case Received::nothing:
                return true;
            case Received::end:
                break;
        }
        return false;
    }

    void startWaiting() {
        if (!waiting_ || (waiting_->slot == DecodeSlot::large && !children_.empty())) return;
        const bool started = start(*waiting_);
        // Before the next fork, lest the pipe of this task stay open in the child that it makes.
        waiting_.reset();
        if (started) forkSpare();
    }

    bool start(const DecodeTask& task) {
        idleSince_ = Clock::now();
        // Without its sandbox no image is decoded: the pipe ends with no answer.
        if (write(task.answer.get(), &accepted, sizeof accepted) < 0 || !sandbox_) return false;
        // A spare child that was killed meanwhile is replaced, once.
        if (!spare_ || !spare_->begin(task)) {
            if (!forkSpare() || !spare_->begin(task)) return false;
        }
        children_.push_back({spare_->release(), Clock::now() + options_.wallLimit, task.slot});
        return true;
    }

    bool forkSpare() {
        spare_ = SpareChild::fork(*sandbox_, mappedBefore_, options_.decode);
        return spare_ != nullptr;
    }

    void endAndReap() {
        std::erase_if(children_, [this](const Child& child) {
            const bool late = Clock::now() >= child.deadline;
            if (late) kill(child.process.pid, SIGKILL);
            if (waitpid(child.process.pid, nullptr, late ? 0 : WNOHANG) == 0) return false;
            idleSince_ = Clock::now();
            return true;
        });
    }

    DecoderServerOptions options_;
    std::optional<Sandbox> sandbox_;
    std::size_t mappedBefore_;
    std::vector<Child> children_;
    std::optional<DecodeTask> waiting_;  // for the memory of those that run
    std::unique_ptr<SpareChild> spare_;
    Clock::time_point idleSince_;
};

}  // namespace

int runDecoder(const DecoderServerOptions& options) {
    // Its child is nobody's to wait for, so that the program needs no look-out for its end.
    const pid_t pid = fork();
    if (pid != 0) _exit(pid > 0 ? 0 : 1);
    std::signal(SIGPIPE, SIG_IGN);
    if (chdir("/") != 0) return 1;
    warmUp();
    Server(options, Sandbox::prepare(childAnswer, childPixels)).serve();
    return 0;
}

}  // namespace glintmark::platform::image
