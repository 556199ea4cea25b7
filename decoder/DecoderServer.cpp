#include "decoder/DecoderServer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <utility>
#include <vector>

#include "decoder/DescriptorMessage.h"
#include "decoder/ForkedProcess.h"
#include "decoder/HiddenLibraries.h"
#include "decoder/SelfTest.h"
#include "decoder/WarmUp.h"

namespace glintmark::decoder {

namespace {

std::uint64_t microseconds(const timeval& time) {
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000 +
           static_cast<std::uint64_t>(time.tv_usec);
}

class Server {
public:
    Server(ChildSettings settings, const Sandbox& sandbox)
        : settings_(std::move(settings)), sandbox_(sandbox), selfTest_(sandbox_, settings_) {}

    void serve() {
        forkChild();
        while (handleNextEvents()) {
        }
        for (const Child& child : children_) {
            kill(child.process.pid, SIGKILL);
        }
    }

private:
    struct Child {
        std::uint32_t id;
        ForkedProcess process;
    };

    /// False if the program has closed its end.
    bool handleNextEvents() {
        std::vector<pollfd> watched{{helperSocket, POLLIN, 0}, {selfTest_.descriptor(), POLLIN, 0}};
        for (const Child& child : children_) {
            watched.push_back({child.process.descriptor.get(), POLLIN, 0});
        }
        poll(watched.data(), watched.size(), -1);
        if (watched[1].revents != 0) {
            handleEndOfSelfTest();
        }
        for (std::size_t i = children_.size(); i-- > 0;) {
            if (watched[i + 2].revents != 0) {
                reap(i);
            }
        }
        return watched[0].revents == 0 || handleOrder();
    }

    bool handleOrder() {
        HelperOrder order;
        NoticeDescriptors none;
        const auto length =
            receiveMessage(helperSocket, std::as_writable_bytes(std::span(&order, 1)), none);
        if (!length) {
            return true;
        }
        if (*length != sizeof order) {
            return false;
        }
        const auto child = std::ranges::find(children_, order.child, &Child::id);
        if (child != children_.end()) {
            obey(order, child->process.pid);
        }
        if (order.kind == HelperOrder::Kind::fork || order.kind == HelperOrder::Kind::replace) {
            forkChild();
        }
        return true;
    }

    static void obey(const HelperOrder& order, pid_t pid) {
        using enum HelperOrder::Kind;
        switch (order.kind) {
            case fork:
                break;
            case limitTime: {
                const rlimit limit{order.seconds, order.seconds + cpuGraceSeconds};
                prlimit(pid, RLIMIT_CPU, &limit, nullptr);
                break;
            }
            case addRoom:
                raiseMemoryLimit(pid);
                notify({.kind = HelperNotice::Kind::roomAdded, .child = order.child});
                break;
            case kill:
            case replace:
                ::kill(pid, SIGKILL);
                break;
        }
    }

    // A child may not raise its own limits, since the sandbox refuses the call.
    static void raiseMemoryLimit(pid_t pid) {
        rlimit limit{};
        if (prlimit(pid, RLIMIT_AS, nullptr, &limit) == 0) {
            limit.rlim_cur = limit.rlim_max;
            prlimit(pid, RLIMIT_AS, &limit, nullptr);
        }
    }

    /// On failure the program gets no notice, and gives up after a while.
    void forkChild() {
        SocketPair channel;
        const FileDescriptor exchange(memfd_create("image", MFD_CLOEXEC));
        if (!channel.ours || !exchange || ftruncate(exchange.get(), exchangeBytes) != 0) {
            return;
        }
        settings_.brokenFormats = selfTest_.brokenFormats();
        ForkedProcess process =
            forkProcess([&] { runDecoderChild(channel.theirs, exchange, sandbox_, settings_); });
        if (!process.descriptor) {
            return;
        }
        children_.push_back({nextID_, std::move(process)});
        const std::array descriptors{channel.ours.get(), exchange.get()};
        notify({.kind = HelperNotice::Kind::ready, .child = nextID_++}, descriptors);
    }

    void reap(std::size_t index) {
        rusage usage{};
        HelperNotice notice{.kind = HelperNotice::Kind::ended, .child = children_[index].id};
        wait4(children_[index].process.pid, &notice.waitStatus, 0, &usage);
        notice.cpuMicroseconds = microseconds(usage.ru_utime) + microseconds(usage.ru_stime);
        children_.erase(children_.begin() + static_cast<std::ptrdiff_t>(index));
        notify(notice);
    }

    void handleEndOfSelfTest() {
        if (const auto broken = selfTest_.handleEnd()) {
            HelperNotice notice{.kind = HelperNotice::Kind::brokenFormat};
            broken->copy(notice.text.data(), notice.text.size() - 1);
            notify(notice);
        }
    }

    static void notify(const HelperNotice& notice, std::span<const int> descriptors = {}) {
        sendMessage(helperSocket, notice, descriptors);
    }

    ChildSettings settings_;
    const Sandbox& sandbox_;
    SelfTest selfTest_;
    std::vector<Child> children_;
    std::uint32_t nextID_ = 1;
};

}  // namespace

int runDecoder(const ChildSettings& settings) {
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
    const auto sandbox = Sandbox::prepare(childChannel);
    if (!sandbox) {
        return 1;  // nothing may be decoded
    }
#ifndef GLINTMARK_SANITIZED  // the sanitizers look at all libraries
    hideUnusedLibraries();
#endif
    Server(settings, *sandbox).serve();
    return 0;
}

}  // namespace glintmark::decoder
