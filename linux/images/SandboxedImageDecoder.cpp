#include "linux/images/SandboxedImageDecoder.h"

#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "base/graphics/Image.h"
#include "base/work/DispatchQueue.h"
#include "linux/images/DecoderHelper.h"
#include "linux/queues/RunningCompletions.h"
#include "linux/queues/Thread.h"

namespace glintmark::platform {

namespace {

constexpr std::size_t stackBytes = std::size_t{256} << 10;

}  // namespace

/// The state that callers, the decoder's thread and running completions share.
class SandboxedImageDecoder::Worker : public std::enable_shared_from_this<Worker> {
public:
    Worker(std::string helperPath, DispatchQueue& completionQueue, DecodingOptions options)
        : helper_(std::move(helperPath)),
          completionQueue_(completionQueue),
          options_(std::move(options)) {}

    void add(DecodeTask task);
    void endLink(std::shared_ptr<DecodeLink> link);
    void close();

private:
    bool startThread();
    void run();
    bool takeNews(DecodingLoop& loop);
    bool stopIfDone();
    void submit(DecodingLoop::Finished finished);

    const DecoderHelper helper_;
    DispatchQueue& completionQueue_;
    const DecodingOptions options_;
    RestartPause pause_;  ///< Used by the decoder's thread only.
    RunningCompletions completions_;

    std::mutex mutex_;
    // The mutex guards the rest.
    std::optional<Thread> thread_;
    bool threadRuns_ = false;
    bool closed_ = false;
    DecodingLoop* loop_ = nullptr;  ///< The thread's loop, while it has one.
    std::vector<DecodeTask> newTasks_;
    std::vector<std::shared_ptr<DecodeLink>> endedLinks_;
};

/// Tells the worker when the last reference to it is gone.
class SandboxedImageDecoder::Batch final : public ImageBatch {
public:
    explicit Batch(std::weak_ptr<Worker> worker) : worker_(std::move(worker)) {}
    ~Batch() override {
        if (const auto worker = worker_.lock()) {
            worker->endLink(link_);
        }
    }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    const std::shared_ptr<DecodeLink>& link() const { return link_; }

private:
    std::weak_ptr<Worker> worker_;
    std::shared_ptr<DecodeLink> link_ = std::make_shared<DecodeLink>();
};

void SandboxedImageDecoder::Worker::add(DecodeTask task) {
    {
        const std::lock_guard lock(mutex_);
        if (threadRuns_ || startThread()) {
            newTasks_.push_back(std::move(task));
            if (loop_ != nullptr && newTasks_.size() == 1) {
                loop_->wake();
            }
            return;
        }
    }
    submit({std::move(task.completion), nullptr});
}

void SandboxedImageDecoder::Worker::endLink(std::shared_ptr<DecodeLink> link) {
    const std::lock_guard lock(mutex_);
    if (loop_ != nullptr) {
        endedLinks_.push_back(std::move(link));
        loop_->wake();
    }
}

bool SandboxedImageDecoder::Worker::startThread() {
    // Assigning joins the previous thread, which holds no lock any more and is about to end.
    thread_ = Thread::start("images", stackBytes, [self = shared_from_this()] { self->run(); });
    threadRuns_ = thread_.has_value();
    return threadRuns_;
}

void SandboxedImageDecoder::Worker::run() {
    lowerPriorityBelowMainThread();
    do {
        DecodingLoop loop(helper_, options_, pause_);
        auto idleUntil = DecodingLoop::Clock::time_point::max();
        while (takeNews(loop)) {
            for (DecodingLoop::Finished& finished : loop.runOnce()) {
                submit(std::move(finished));
            }
            const auto now = DecodingLoop::Clock::now();
            if (!loop.isIdle()) {
                idleUntil = DecodingLoop::Clock::time_point::max();
            } else if (idleUntil == DecodingLoop::Clock::time_point::max()) {
                idleUntil = now + options_.idleTimeout;
            } else if (now >= idleUntil) {
                break;
            }
            loop.wait(idleUntil);
        }
        const std::lock_guard lock(mutex_);
        loop_ = nullptr;
    } while (!stopIfDone());
}

/// Moves what is new into `loop`. False if the decoder is closed.
bool SandboxedImageDecoder::Worker::takeNews(DecodingLoop& loop) {
    std::vector<DecodeTask> tasks;
    std::vector<std::shared_ptr<DecodeLink>> links;
    {
        const std::lock_guard lock(mutex_);
        if (closed_) {
            return false;
        }
        loop_ = &loop;
        tasks.swap(newTasks_);
        links.swap(endedLinks_);
    }
    for (DecodeTask& task : tasks) {
        loop.add(std::move(task));
    }
    for (const auto& link : links) {
        loop.endLink(link);
    }
    return true;
}

/// Marks the thread as ended and returns true if the decoder is closed or there is no new image.
bool SandboxedImageDecoder::Worker::stopIfDone() {
    const std::lock_guard lock(mutex_);
    if (!closed_ && !newTasks_.empty()) {
        return false;
    }
    threadRuns_ = false;
    return true;
}

void SandboxedImageDecoder::Worker::submit(DecodingLoop::Finished finished) {
    completionQueue_.async(
        [self = shared_from_this(),
         shared = std::make_shared<DecodingLoop::Finished>(std::move(finished))] {
            self->completions_.run([&] {
                shared->completion(std::move(shared->image));
                shared->completion = nullptr;
            });
        });
}

void SandboxedImageDecoder::Worker::close() {
    std::optional<Thread> thread;
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        if (loop_ != nullptr) {
            loop_->wake();
        }
        thread = std::move(thread_);
    }
    completions_.close();
    thread.reset();
    newTasks_.clear();
}

SandboxedImageDecoder::SandboxedImageDecoder(std::string helperPath, DispatchQueue& completionQueue,
                                             DecodingOptions options)
    : worker_(
          std::make_shared<Worker>(std::move(helperPath), completionQueue, std::move(options))) {}

SandboxedImageDecoder::~SandboxedImageDecoder() { worker_->close(); }

std::shared_ptr<ImageBatch> SandboxedImageDecoder::makeBatch() {
    return std::make_shared<Batch>(worker_);
}

void SandboxedImageDecoder::decode(std::string data, const std::shared_ptr<ImageBatch>& batch,
                                   Completion completion) {
    const auto& link = std::static_pointer_cast<Batch>(batch)->link();
    worker_->add({.data = std::move(data), .link = link, .completion = std::move(completion)});
}

}  // namespace glintmark::platform
