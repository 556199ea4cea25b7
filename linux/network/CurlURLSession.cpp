#include "linux/network/CurlURLSession.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "base/work/DispatchQueue.h"
#include "linux/network/CurlLoop.h"
#include "linux/network/CurlTaskGroup.h"
#include "linux/network/CurlTransfer.h"
#include "linux/queues/RunningCompletions.h"
#include "linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t stackBytes = std::size_t{512} << 10;

/// The largest body that any completion gets on the session's thread. All transfers wait meanwhile.
constexpr std::size_t maximumSmallBodyBytes = std::size_t{64} << 10;

void initialiseLibrary() {
    // Only when there is a request: initialising OpenSSL costs memory and time. The libraries are
    // never cleaned up, because other code in the process may use them.
    static const CURLcode outcome = curl_global_init(CURL_GLOBAL_DEFAULT);
    static_cast<void>(outcome);
}

bool isQuick(const CurlTransfer& transfer) {
    const auto& body = transfer.result().body;
    return transfer.isQuickToComplete() || !body || body->size() <= maximumSmallBodyBytes;
}

/// The worker whose thread runs this code; null on other threads. Only compared.
thread_local const void* workerOfThisThread = nullptr;

}  // namespace

/// The state that callers, the session's thread and running completions share.
class CurlURLSession::Worker : public std::enable_shared_from_this<Worker> {
public:
    Worker(DispatchQueue& completionQueue, CurlURLSessionOptions options)
        : completionQueue_(completionQueue), options_(std::move(options)), names_(options_.now) {}

    void prepare();
    void start(URLRequest request, Completion completion);
    bool attach(std::shared_ptr<LoopSource> source);
    void wake();
    void close();

private:
    /// A result that has not been passed to the caller yet.
    struct Delivery {
        Completion completion;
        URLResult result;
        std::size_t bytes;
    };

    bool startThread();
    void run();
    void serve(TransferClock::Time& idleUntil);
    bool takeNews(CurlLoop& loop, bool& mayStart);
    void dispatchSources();
    void wait(CurlLoop& loop, TransferClock::Time latest);
    void wakeLoop();
    bool stopIfDone();
    bool hasNewRequests();
    void finish(CurlTransfer& transfer);
    std::shared_ptr<Delivery> deliveryOf(CurlTransfer& transfer);
    void submit(std::shared_ptr<Delivery> delivery);
    void complete(Delivery& delivery);

    DispatchQueue& completionQueue_;
    const CurlURLSessionOptions options_;
    std::atomic<bool> closed_ = false;
    RunningCompletions completions_;
    // For the session's thread.
    NameLookUps names_;
    std::vector<std::unique_ptr<CurlTransfer>> ownRequests_;  ///< Started by completions.
    std::vector<std::shared_ptr<LoopSource>> sources_;

    std::mutex mutex_;
    // The mutex guards the rest.
    std::optional<Thread> thread_;
    bool threadRuns_ = false;
    CurlLoop* loop_ = nullptr;  ///< The thread's loop, while it has one.
    std::vector<std::unique_ptr<CurlTransfer>> newRequests_;
    std::vector<std::shared_ptr<LoopSource>> newSources_;
    std::size_t deliveredBytes_ = 0;  ///< Bodies whose completions have not returned.
};

CurlURLSession::CurlURLSession(DispatchQueue& completionQueue, CurlURLSessionOptions options)
    : worker_(std::make_shared<Worker>(completionQueue, std::move(options))) {}

CurlURLSession::~CurlURLSession() { worker_->close(); }

std::shared_ptr<URLTaskGroup> CurlURLSession::makeTaskGroup(const std::string& host) {
    return std::make_shared<CurlTaskGroup>(host);
}

void CurlURLSession::prepare() { worker_->prepare(); }

void CurlURLSession::startDataTask(URLRequest request, Completion completion) {
    worker_->start(std::move(request), std::move(completion));
}

bool CurlURLSession::attach(std::shared_ptr<LoopSource> source) {
    return worker_->attach(std::move(source));
}

void CurlURLSession::wake() { worker_->wake(); }

void CurlURLSession::Worker::prepare() {
    const std::lock_guard lock(mutex_);
    if (!threadRuns_) {
        startThread();
    }
}

void CurlURLSession::Worker::start(URLRequest request, Completion completion) {
    auto transfer =
        std::make_unique<CurlTransfer>(std::move(request), std::move(completion), options_);
    if (transfer->host().empty()) {
        submit(deliveryOf(*transfer));
        return;
    }
    if (workerOfThisThread == this) {
        ownRequests_.push_back(std::move(transfer));
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        if (threadRuns_ || startThread()) {
            newRequests_.push_back(std::move(transfer));
            if (newRequests_.size() == 1) {
                wakeLoop();
            }
            return;
        }
    }
    transfer->refuse("No thread can be started.");
    submit(deliveryOf(*transfer));
}

bool CurlURLSession::Worker::attach(std::shared_ptr<LoopSource> source) {
    const std::lock_guard lock(mutex_);
    if (closed_ || !(threadRuns_ || startThread())) {
        return false;
    }
    newSources_.push_back(std::move(source));
    wakeLoop();
    return true;
}

void CurlURLSession::Worker::wake() {
    if (workerOfThisThread != this) {  // else each source gets a turn before the next wait
        const std::lock_guard lock(mutex_);
        wakeLoop();
    }
}

/// The mutex must be locked.
void CurlURLSession::Worker::wakeLoop() {
    if (loop_ != nullptr) {
        loop_->wake();
    }
}

bool CurlURLSession::Worker::startThread() {
    // Assigning joins the previous thread, which holds no lock any more and is about to end.
    thread_ = Thread::start("http", stackBytes, [self = shared_from_this()] { self->run(); });
    threadRuns_ = thread_.has_value();
    return threadRuns_;
}

void CurlURLSession::Worker::run() {
    workerOfThisThread = this;
    lowerPriorityBelowMainThread();
    initialiseLibrary();
    auto idleUntil = options_.now() + options_.idleTimeout;
    do {
        serve(idleUntil);
    } while (!stopIfDone());
}

/// Runs transfers and sources until there have been no transfers for the idle timeout, or the
/// session closes. If no transfer came at all, sources may keep it for longer.
void CurlURLSession::Worker::serve(TransferClock::Time& idleUntil) {
    CurlLoop loop(options_, names_);
    bool hasRunTransfers = false;
    bool mayStart = true;
    while (takeNews(loop, mayStart)) {
        hasRunTransfers = hasRunTransfers || !loop.idle();
        for (const auto& transfer : loop.runOnce(mayStart)) {
            finish(*transfer);
            idleUntil = options_.now() + options_.idleTimeout;
        }
        dispatchSources();
        if (hasNewRequests()) {
            continue;
        }
        const auto now = options_.now();
        if (!loop.idle()) {
            idleUntil = now + options_.idleTimeout;
            if (!mayStart || !loop.canStart()) {
                wait(loop, TransferClock::Time::max());
            }
        } else if (now < idleUntil) {
            wait(loop, idleUntil);
        } else if (hasRunTransfers || sources_.empty()) {
            break;
        } else {
            wait(loop, TransferClock::Time::max());
        }
    }
    const std::lock_guard lock(mutex_);
    loop_ = nullptr;
}

/// Moves the new requests into `loop` and takes the new sources. False if the session is closed.
bool CurlURLSession::Worker::takeNews(CurlLoop& loop, bool& mayStart) {
    std::vector<std::unique_ptr<CurlTransfer>> taken;
    {
        const std::lock_guard lock(mutex_);
        if (closed_) {
            return false;
        }
        loop_ = &loop;
        taken.swap(newRequests_);
        std::ranges::move(std::exchange(newSources_, {}), std::back_inserter(sources_));
        mayStart = deliveredBytes_ <= options_.maximumDeliveredBytes;
    }
    for (auto& transfer : taken) {
        loop.add(std::move(transfer));
    }
    for (auto& transfer : std::exchange(ownRequests_, {})) {
        loop.add(std::move(transfer));
    }
    return true;
}

void CurlURLSession::Worker::dispatchSources() {
    std::erase_if(sources_, [](const auto& source) { return !source->dispatch(); });
}

void CurlURLSession::Worker::wait(CurlLoop& loop, TransferClock::Time latest) {
    std::vector<pollfd> watched;
    std::vector<std::size_t> ends;
    for (const auto& source : sources_) {
        latest = std::min(latest, source->prepare(watched));
        ends.push_back(watched.size());
    }
    loop.wait(latest, watched);
    std::size_t begin = 0;
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        sources_[i]->check(std::span(watched).subspan(begin, ends[i] - begin));
        begin = ends[i];
    }
}

/// Marks the thread as ended and returns true if the session is closed or has nothing to do.
bool CurlURLSession::Worker::stopIfDone() {
    malloc_trim(0);  // returns the memory of the connections, certificates and bodies
    const std::lock_guard lock(mutex_);
    if (!closed_ && !(newRequests_.empty() && newSources_.empty() && sources_.empty())) {
        return false;
    }
    sources_.clear();
    threadRuns_ = false;
    return true;
}

bool CurlURLSession::Worker::hasNewRequests() {
    if (!ownRequests_.empty()) {
        return true;
    }
    const std::lock_guard lock(mutex_);
    return !newRequests_.empty();
}

/// Waking a thread of the queue for each short completion, and this thread again for the request
/// that the completion starts, takes longer than the rest of the work.
void CurlURLSession::Worker::finish(CurlTransfer& transfer) {
    if (!isQuick(transfer)) {
        submit(deliveryOf(transfer));
    } else if (!closed_) {
        const Completion completion = transfer.takeCompletion();
        completion(transfer.takeResult());
    }
}

std::shared_ptr<CurlURLSession::Worker::Delivery> CurlURLSession::Worker::deliveryOf(
    CurlTransfer& transfer) {
    auto delivery = std::make_shared<Delivery>();
    delivery->completion = transfer.takeCompletion();
    delivery->result = transfer.takeResult();
    delivery->bytes = delivery->result.body ? delivery->result.body->size() : 0;
    {
        const std::lock_guard lock(mutex_);
        deliveredBytes_ += delivery->bytes;
    }
    return delivery;
}

void CurlURLSession::Worker::submit(std::shared_ptr<Delivery> delivery) {
    completionQueue_.async(
        [self = shared_from_this(), delivery = std::move(delivery)] { self->complete(*delivery); });
}

void CurlURLSession::Worker::complete(Delivery& delivery) {
    completions_.run([&] {
        delivery.completion(std::move(delivery.result));
        delivery.completion = nullptr;
    });
    const std::lock_guard lock(mutex_);
    const bool wasPaused = deliveredBytes_ > options_.maximumDeliveredBytes;
    deliveredBytes_ -= delivery.bytes;
    if (wasPaused && deliveredBytes_ <= options_.maximumDeliveredBytes && loop_ != nullptr) {
        loop_->wake();
    }
}

void CurlURLSession::Worker::close() {
    std::optional<Thread> thread;
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        wakeLoop();
        thread = std::move(thread_);
    }
    completions_.close();
    thread.reset();
    newRequests_.clear();
    ownRequests_.clear();
}

}  // namespace glintmark::platform
