#include "linux/queues/Thread.h"

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <utility>

namespace glintmark::platform {

namespace {

constexpr std::size_t maximumNameBytes = 15;  // pthread_setname_np(3)
constexpr int addedNiceness = 5;

struct Start {
    std::string name;
    std::function<void()> body;
};

void* run(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    pthread_setname_np(pthread_self(), start->name.c_str());
    start->body();
    return nullptr;
}

bool create(pthread_t& handle, int detachState, const std::string& name, std::size_t stackBytes,
            std::function<void()> body) {
    auto start = std::make_unique<Start>(Start{name.substr(0, maximumNameBytes), std::move(body)});
    // Inherited: AddressSanitizer of LLVM 19 undoes the attribute for signals.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stackBytes);
    pthread_attr_setdetachstate(&attributes, detachState);
    const bool created = pthread_create(&handle, &attributes, run, start.get()) == 0;
    pthread_attr_destroy(&attributes);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (created) {
        static_cast<void>(start.release());  // the thread owns it
    }
    return created;
}

}  // namespace

std::optional<Thread> Thread::start(const std::string& name, std::size_t stackBytes,
                                    std::function<void()> body) {
    Thread thread;
    thread.joinable_ =
        create(thread.handle_, PTHREAD_CREATE_JOINABLE, name, stackBytes, std::move(body));
    return thread.joinable_ ? std::optional(std::move(thread)) : std::nullopt;
}

bool Thread::startDetached(const std::string& name, std::size_t stackBytes,
                           std::function<void()> body) {
    pthread_t handle{};
    return create(handle, PTHREAD_CREATE_DETACHED, name, stackBytes, std::move(body));
}

Thread::Thread(Thread&& other) noexcept
    : handle_(other.handle_), joinable_(std::exchange(other.joinable_, false)) {}

Thread& Thread::operator=(Thread&& other) noexcept {
    std::swap(handle_, other.handle_);
    std::swap(joinable_, other.joinable_);
    return *this;
}

Thread::~Thread() {
    if (joinable_) {
        join();
    }
}

bool Thread::isCurrent() const { return is(pthread_self()); }

bool Thread::is(pthread_t other) const { return joinable_ && pthread_equal(handle_, other) != 0; }

void Thread::join() {
    pthread_join(handle_, nullptr);
    joinable_ = false;
}

void Thread::detach() {
    pthread_detach(handle_);
    joinable_ = false;
}

void lowerPriorityBelowMainThread() {
    // On Linux each thread has its own niceness, and the process's id names the main thread.
    const int nicenessOfMain = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    setpriority(PRIO_PROCESS, 0, nicenessOfMain + addedNiceness);
}

}  // namespace glintmark::platform
