#include "linux/network/CurlURLSession.h"

#include <malloc.h>
#include <pthread.h>

#include <condition_variable>
#include <csignal>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "base/work/DispatchQueue.h"
#include "linux/network/CurlCookies.h"
#include "linux/network/CurlLoop.h"
#include "linux/network/CurlTransfer.h"
#include "linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t stackBytes = std::size_t{512} << 10;

/// The longest body of an answer other than a success that is worked off on the session's thread,
/// in bytes. All transfers wait meanwhile.
constexpr std::size_t mostWorkedOffHere = std::size_t{16} << 10;

void initialiseLibrary() {
    // Not before the first request: OpenSSL's start costs memory and time. Never undone, since the
    // process's other users of these libraries cannot be known.
    static const CURLcode outcome = curl_global_init(CURL_GLOBAL_DEFAULT);
    static_cast<void>(outcome);
}

/// Threads started while this lives leave all signals to the others. That also turns the SIGPIPE of
/// a connection that went away into an error code.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

/// Unlike a page or an image.
bool isSoonWorkedOff(const URLResult& result) {
    const bool isSuccess = result.response && result.response->statusCode.value_or(0) / 100 == 2;
    return !result.body || (!isSuccess && result.body->size() <= mostWorkedOffHere);
}

}  // namespace

/// What the callers, the session's thread and the completions under way share.
class CurlURLSession::Worker : public std::enable_shared_from_this<Worker> {
public:
    Worker(DispatchQueue& completionQueue, CurlURLSessionOptions options)
        : completionQueue_(completionQueue), options_(std::move(options)) {}

    void start(URLRequest request, Completion completion);
    void close();

private:
    /// A request's end on its way to the caller.
    struct Delivery {
        Completion completion;
        URLResult result;
        std::size_t bytes;
    };

    bool startThread();
    void run();
    void serve();
    bool takeArrived(CurlLoop& loop, bool& mayBegin);
    bool retire();
    bool hasArrived();
    void finish(CurlTransfer& transfer);
    std::shared_ptr<Delivery> deliveryOf(CurlTransfer& transfer);
    void submit(std::shared_ptr<Delivery> delivery);
    void complete(Delivery& delivery);

    DispatchQueue& completionQueue_;
    const CurlURLSessionOptions options_;
    std::optional<CurlCookies> cookies_;  ///< The thread's; made by its first run.

    std::mutex mutex_;
    std::condition_variable completionEnded_;
    // The rest is guarded by the mutex.
    std::optional<Thread> thread_;
    bool threadRuns_ = false;
    bool closed_ = false;
    CurlLoop* loop_ = nullptr;  ///< While the thread has one.
    std::vector<std::unique_ptr<CurlTransfer>> arrived_;
    std::size_t deliveredBytes_ = 0;  ///< Of completions that have not returned.
    int runningCompletions_ = 0;
};

CurlURLSession::CurlURLSession(DispatchQueue& completionQueue, CurlURLSessionOptions options)
    : worker_(std::make_shared<Worker>(completionQueue, std::move(options))) {}

CurlURLSession::~CurlURLSession() { worker_->close(); }

void CurlURLSession::startDataTask(URLRequest request, Completion completion) {
    worker_->start(std::move(request), std::move(completion));
}

void CurlURLSession::Worker::start(URLRequest request, Completion completion) {
    auto transfer =
        std::make_unique<CurlTransfer>(std::move(request), std::move(completion), options_);
    if (transfer->host().empty()) {
        submit(deliveryOf(*transfer));
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        if (threadRuns_ || startThread()) {
            arrived_.push_back(std::move(transfer));
            if (loop_ != nullptr && arrived_.size() == 1 && !thread_->isCurrent()) {
                loop_->wake();
            }
            return;
        }
    }
    transfer->refuse("No thread can be started.");
    submit(deliveryOf(*transfer));
}

bool CurlURLSession::Worker::startThread() {
    const SignalsBlocked blocked;
    // One that ran before is joined here; it holds no lock any more and is about to end.
    thread_ = Thread::start("http", stackBytes, [self = shared_from_this()] { self->run(); });
    threadRuns_ = thread_.has_value();
    return threadRuns_;
}

void CurlURLSession::Worker::run() {
    yieldToMainThread();
    initialiseLibrary();
    if (!cookies_) {
        cookies_.emplace();
    }
    do {
        serve();
    } while (!retire());
}

/// Until nothing has been asked for during the idle time, or the session closes.
void CurlURLSession::Worker::serve() {
    CurlLoop loop(options_, *cookies_);
    auto idleUntil = options_.now() + options_.idleTime;
    bool mayBegin = true;
    while (takeArrived(loop, mayBegin)) {
        for (const auto& transfer : loop.turn(mayBegin)) {
            finish(*transfer);
        }
        if (hasArrived()) {
            continue;
        }
        const auto now = options_.now();
        if (!loop.idle()) {
            idleUntil = now + options_.idleTime;
            if (!mayBegin || !loop.canBegin()) {
                loop.wait(TransferClock::Time::max());
            }
        } else if (now < idleUntil) {
            loop.wait(idleUntil);
        } else {
            break;
        }
    }
    const std::lock_guard lock(mutex_);
    loop_ = nullptr;
}

/// False when the session closes.
bool CurlURLSession::Worker::takeArrived(CurlLoop& loop, bool& mayBegin) {
    std::vector<std::unique_ptr<CurlTransfer>> arrived;
    {
        const std::lock_guard lock(mutex_);
        if (closed_) {
            return false;
        }
        loop_ = &loop;
        arrived.swap(arrived_);
        mayBegin = deliveredBytes_ <= options_.deliveredLimit;
    }
    for (auto& transfer : arrived) {
        loop.add(std::move(transfer));
    }
    return true;
}

/// Whether the thread is to end.
bool CurlURLSession::Worker::retire() {
    malloc_trim(0);  // the connections, certificates and bodies are gone: give their pages back
    const std::lock_guard lock(mutex_);
    if (!closed_ && !arrived_.empty()) {
        return false;
    }
    threadRuns_ = false;
    return true;
}

bool CurlURLSession::Worker::hasArrived() {
    const std::lock_guard lock(mutex_);
    return !arrived_.empty();
}

/// Most requests of a fetch are for what the site does not have. To wake another thread for the
/// answer, and this one again for the request that follows from it, takes longer than the rest.
void CurlURLSession::Worker::finish(CurlTransfer& transfer) {
    auto delivery = deliveryOf(transfer);
    if (isSoonWorkedOff(delivery->result)) {
        complete(*delivery);
    } else {
        submit(std::move(delivery));
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
    {
        const std::lock_guard lock(mutex_);
        if (closed_) {
            return;
        }
        ++runningCompletions_;
    }
    delivery.completion(std::move(delivery.result));
    delivery.completion = nullptr;

    const std::lock_guard lock(mutex_);
    const bool heldUp = deliveredBytes_ > options_.deliveredLimit;
    deliveredBytes_ -= delivery.bytes;
    if (heldUp && deliveredBytes_ <= options_.deliveredLimit && loop_ != nullptr) {
        loop_->wake();
    }
    --runningCompletions_;
    completionEnded_.notify_all();
}

void CurlURLSession::Worker::close() {
    std::unique_lock lock(mutex_);
    closed_ = true;
    if (loop_ != nullptr) {
        loop_->wake();
    }
    std::optional<Thread> thread = std::move(thread_);
    completionEnded_.wait(lock, [this] { return runningCompletions_ == 0; });
    lock.unlock();
    thread.reset();
    arrived_.clear();
}

}  // namespace glintmark::platform
