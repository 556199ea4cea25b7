#include "decoder/DecoderServer.h"

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

#include "decoder/SpareChild.h"
#include "decoder/TaskReceiver.h"
#include "decoder/WarmUp.h"

namespace glintmark::decoder {

namespace {

using Clock = std::chrono::steady_clock;

// The program sends no more requests than this at a time. Further requests would wait in the
// socket.
constexpr std::size_t maximumChildren = 2;

std::size_t mappedBytes() {
    const FileDescriptor statistics(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
    std::array<char, 64> text{};
    if (!statistics || read(statistics.get(), text.data(), text.size() - 1) <= 0) {
        return 0;
    }
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
        forkSpare();
        while (handleNextEvent()) {
        }
        for (const Child& child : children_) {
            kill(child.process.pid, SIGKILL);
        }
    }

private:
    struct Child {
        ForkedProcess process;
        FileDescriptor channel;
        DecodeSlot slot;
        bool started;
        Clock::time_point deadline;
    };

    /// Waits for one event and handles it. False if no work is left.
    bool handleNextEvent() {
        if (spare_ && hasRoom()) {
            spare_->allow();
        }
        std::vector<pollfd> watched = watchedDescriptors();
        poll(watched.data(), watched.size(), millisecondsUntil(nextDeadline()));

        const int socketEvents = watched.back().revents;
        const bool spareIsReady = watched[watched.size() - 2].revents != 0;
        killLateAndReap();
        if ((socketEvents & POLLHUP) != 0) {
            return false;  // the program has closed its end
        }
        if (spareIsReady) {
            handleSpare();
        }
        if ((socketEvents & POLLIN) != 0) {
            replaceSpare();
        }
        startLarge();
        if (isIdleForLong()) {
            leave();
        }
        return !leaving_ || spare_ || !children_.empty();
    }

    /// The process descriptors of the children, then the spare child's channel, and the socket
    /// last. The socket is watched for requests only while there is no spare child to receive them.
    std::vector<pollfd> watchedDescriptors() const {
        std::vector<pollfd> watched;
        for (const Child& child : children_) {
            watched.push_back({child.process.descriptor.get(), POLLIN, 0});
        }
        watched.push_back({spare_ ? spare_->channel() : -1, POLLIN, 0});
        const bool acceptsRequests = !spare_ && !leaving_ && hasRoom();
        watched.push_back({decoderSocket, static_cast<short>(acceptsRequests ? POLLIN : 0), 0});
        return watched;
    }

    Clock::time_point nextDeadline() const {
        if (!children_.empty()) {
            return children_.front().deadline;  // the oldest
        }
        return leaving_ ? Clock::now() + options_.decodeTimeout : idleSince_ + options_.idleTimeout;
    }

    bool isIdleForLong() const {
        return !leaving_ && children_.empty() && Clock::now() >= idleSince_ + options_.idleTimeout;
    }

    /// Stops accepting requests: sending one fails from now on. `goodbye` tells the program that
    /// the decoder did not die. A request that arrived before is still served.
    void leave() {
        leaving_ = true;
        send(decoderSocket, &goodbye, sizeof goodbye, MSG_NOSIGNAL | MSG_DONTWAIT);
        shutdown(decoderSocket, SHUT_RD);
        if (spare_) {
            spare_->allow();
        }
    }

    // A child that has answered may still hold its memory, and one that an attacker controls may
    // stay alive. So the memory of all children is limited here as well as in the program.
    bool hasRoom() const {
        return children_.size() < maximumChildren &&
               std::ranges::none_of(
                   children_, [](const Child& child) { return child.slot == DecodeSlot::large; });
    }

    void handleSpare() {
        const auto slot = spare_->takenSlot();
        if (slot) {
            idleSince_ = Clock::now();
            children_.push_back({spare_->release(), spare_->releaseChannel(), *slot,
                                 *slot == DecodeSlot::small, idleSince_ + options_.decodeTimeout});
            forkSpare();
        } else {
            spare_ = nullptr;
            if (isReplacement_) {
                refuseRequest();
            }
        }
        isReplacement_ = false;
    }

    void forkSpare() {
        spare_ = sandbox_ && !leaving_ ? SpareChild::fork(*sandbox_, mappedBefore_, options_.decode)
                                       : nullptr;
    }

    /// Forks a spare child for a request that already waits. Needed if the spare child was killed
    /// or could not be forked.
    void replaceSpare() {
        forkSpare();
        isReplacement_ = spare_ != nullptr;
        if (!spare_) {
            refuseRequest();
        }
    }

    /// Receives the waiting request and closes its pipe without an answer, because there is no
    /// sandbox or no process for it.
    void refuseRequest() {
        idleSince_ = Clock::now();
        DecodeTask task;
        if (receiveTask(decoderSocket, task, MSG_DONTWAIT) == Received::task) {
            [[maybe_unused]] const auto written =
                write(task.answer.get(), &accepted, sizeof accepted);
        }
    }

    void startLarge() {
        if (children_.size() != 1 || children_.front().started) {
            return;
        }
        children_.front().started = true;
        children_.front().deadline = Clock::now() + options_.decodeTimeout;
        sendGoAhead(children_.front().channel);
    }

    void killLateAndReap() {
        std::erase_if(children_, [this](const Child& child) {
            const bool late = child.started && Clock::now() >= child.deadline;
            if (late) {
                kill(child.process.pid, SIGKILL);
            }
            if (waitpid(child.process.pid, nullptr, late ? 0 : WNOHANG) == 0) {
                return false;
            }
            idleSince_ = Clock::now();
            return true;
        });
    }

    DecoderServerOptions options_;
    std::optional<Sandbox> sandbox_;
    std::size_t mappedBefore_;
    std::vector<Child> children_;
    std::unique_ptr<SpareChild> spare_;
    bool isReplacement_ = false;
    bool leaving_ = false;
    Clock::time_point idleSince_;
};

}  // namespace

int runDecoder(const DecoderServerOptions& options) {
    // Double fork: the program never has to reap the helper.
    const pid_t pid = fork();
    if (pid != 0) {
        _exit(pid > 0 ? 0 : 1);
    }
    std::signal(SIGPIPE, SIG_IGN);
    if (chdir("/") != 0) {
        return 1;
    }
    warmUp();
    Server(options, Sandbox::prepare(childAnswer, childPixels)).serve();
    return 0;
}

}  // namespace glintmark::decoder
