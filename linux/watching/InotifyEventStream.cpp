#include "linux/watching/InotifyEventStream.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "base/work/DispatchQueue.h"
#include "linux/queues/Thread.h"
#include "linux/watching/FolderWatches.h"
#include "platform/Log.h"

namespace glintmark::platform {

namespace {

using Clock = FolderWatches::Clock;

constexpr const char* threadName = "event-stream";
constexpr std::size_t stackBytes = std::size_t{256} * 1024;

/// The absolute paths among `folders`, each once.
std::vector<std::string> absoluteFolders(std::span<const std::string> folders) {
    std::vector<std::string> absolute;
    for (const auto& folder : folders) {
        if (folder.starts_with('/') &&
            std::find(absolute.begin(), absolute.end(), folder) == absolute.end()) {
            absolute.push_back(folder);
        }
    }
    return absolute;
}

}  // namespace

/// Runs the handler until `shut()` is called.
class InotifyEventStream::Delivery {
public:
    explicit Delivery(Handler handler) : handler_(std::move(handler)) {}

    void run(const std::vector<DirectoryEvent>& events) {
        {
            const std::lock_guard lock(mutex_);
            if (isShut_) {
                return;
            }
            runner_ = std::this_thread::get_id();
        }
        handler_(events);
        const std::lock_guard lock(mutex_);
        runner_.reset();
        ended_.notify_all();
    }

    void shut() {
        std::unique_lock lock(mutex_);
        isShut_ = true;
        ended_.wait(lock, [&] { return !runner_ || runner_ == std::this_thread::get_id(); });
    }

private:
    const Handler handler_;
    std::mutex mutex_;  // guards the rest
    std::condition_variable ended_;
    bool isShut_ = false;
    std::optional<std::thread::id> runner_;
};

/// The state that the stream shares with its thread. Nothing waits for the thread, because a file
/// system that does not answer may block it for long. Once the link is cut, the thread uses only
/// its own state and this link.
struct InotifyEventStream::Link {
    Link(std::shared_ptr<Delivery> target, Log& debugLog)
        : wake(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
          delivery(std::move(target)),
          log(&debugLog) {}

    void signal() const { ::eventfd_write(wake.get(), 1); }
    void clearSignal() const {
        eventfd_t count = 0;
        ::eventfd_read(wake.get(), &count);
    }

    void startDelivery(DispatchQueue& target) {
        const std::lock_guard lock(mutex);
        queue = &target;
        signal();
    }

    void cut() {
        const std::lock_guard lock(mutex);
        isCut = true;
        queue = nullptr;
        log = nullptr;
        signal();
    }

    bool isEnding() {
        const std::lock_guard lock(mutex);
        return isCut;
    }

    bool delivers() {
        const std::lock_guard lock(mutex);
        return queue != nullptr;
    }

    void deliver(std::vector<DirectoryEvent> events) {
        const std::lock_guard lock(mutex);
        if (queue != nullptr && !events.empty()) {
            queue->async([to = delivery, events = std::move(events)] { to->run(events); });
        }
    }

    void debug(std::string_view line) {
        const std::lock_guard lock(mutex);
        if (log != nullptr) {
            log->debug(line);
        }
    }

    const FileDescriptor wake;
    const std::shared_ptr<Delivery> delivery;

    std::mutex mutex;  // guards the rest
    bool isCut = false;
    DispatchQueue* queue = nullptr;  // null before the start and once cut
    Log* log;                        // null once cut
};

/// Runs on the thread.
class InotifyEventStream::Watcher {
public:
    Watcher(Inotify forTrees, Inotify forAncestors, const std::vector<std::string>& folders,
            std::chrono::nanoseconds latency, const std::shared_ptr<Link>& link)
        : link_(link),
          latency_(latency),
          watches_(std::move(forTrees), std::move(forAncestors), folders,
                   [link](std::string_view line) { link->debug(line); }) {}

    void run() {
        watches_.begin();
        while (!link_->isEnding()) {
            watches_.wait(link_->wake.get(), deadline());
            link_->clearSignal();
            const auto due = deadline();
            if (due && *due <= Clock::now()) {
                link_->deliver(watches_.takeChanges());
            }
        }
    }

private:
    std::optional<Clock::time_point> deadline() {
        const auto since = watches_.pendingSince();
        return since && link_->delivers() ? std::optional(*since + latency_) : std::nullopt;
    }

    const std::shared_ptr<Link> link_;
    const std::chrono::nanoseconds latency_;
    FolderWatches watches_;
};

std::unique_ptr<InotifyEventStream> InotifyEventStream::make(std::span<const std::string> folders,
                                                             std::chrono::nanoseconds latency,
                                                             Handler handler, Log& log) {
    std::unique_ptr<InotifyEventStream> stream(
        new InotifyEventStream(folders, latency, std::move(handler), log));
    return stream->launch() ? std::move(stream) : nullptr;
}

InotifyEventStream::InotifyEventStream(std::span<const std::string> folders,
                                       std::chrono::nanoseconds latency, Handler handler, Log& log)
    : folders_(absoluteFolders(folders)),
      latency_(latency),
      log_(log),
      delivery_(std::make_shared<Delivery>(std::move(handler))) {}

InotifyEventStream::~InotifyEventStream() {
    stop();
    invalidate();
}

void InotifyEventStream::setDispatchQueue(DispatchQueue& queue) { queue_ = &queue; }

bool InotifyEventStream::start() {
    if (queue_ == nullptr || (link_ == nullptr && !launch())) {
        return false;
    }
    link_->startDelivery(*queue_);
    return true;
}

void InotifyEventStream::stop() {
    if (link_ != nullptr) {
        link_->cut();
        link_.reset();
    }
}

void InotifyEventStream::invalidate() { delivery_->shut(); }

/// Makes everything that can fail before the thread starts.
bool InotifyEventStream::launch() {
    auto forTrees = Inotify::make();
    auto forAncestors = Inotify::make();
    auto link = std::make_shared<Link>(delivery_, log_);
    if (!forTrees || !forAncestors || !link->wake) {
        return false;
    }
    auto watcher = std::make_shared<Watcher>(*std::move(forTrees), *std::move(forAncestors),
                                             folders_, latency_, link);
    if (!Thread::startDetached(threadName, stackBytes, [watcher] { watcher->run(); })) {
        return false;
    }
    link_ = std::move(link);
    return true;
}

std::unique_ptr<EventStream> InotifyEventStreamFactory::create(std::span<const std::string> folders,
                                                               std::chrono::nanoseconds latency,
                                                               EventStream::Handler handler) {
    return InotifyEventStream::make(folders, latency, std::move(handler), log_);
}

}  // namespace glintmark::platform
