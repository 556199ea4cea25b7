#include "linux/images/SandboxedImageDecoder.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "base/graphics/Image.h"
#include "linux/images/DecoderHelper.h"
#include "linux/queues/LoopSource.h"
#include "linux/queues/RunningCompletions.h"

namespace glintmark::platform {

/// The state that callers and the loop's thread share.
class SandboxedImageDecoder::Worker : public LoopSource,
                                      public std::enable_shared_from_this<Worker> {
public:
    Worker(std::string helperPath, SourceLoop& thread, DecodingOptions options)
        : thread_(thread), helper_(std::move(helperPath)), options_(std::move(options)) {}

    void add(DecodeTask task);
    void endLink(std::shared_ptr<DecodeLink> link);
    void close();

    bool dispatch() override;
    Time prepare(std::vector<pollfd>& watched) override;
    void check(std::span<const pollfd> watched) override { loop_->check(watched); }

private:
    bool takeNews();
    bool hasNews();
    bool endIfIdle();

    SourceLoop& thread_;
    DecoderHelper helper_;
    const DecodingOptions options_;
    RunningCompletions completions_;
    // For the loop's thread.
    RestartPause pause_;
    std::optional<DecodingLoop> loop_;
    Time idleUntil_ = Time::max();  ///< Max while there are images.

    std::mutex mutex_;
    // The mutex guards the rest.
    bool isAttached_ = false;
    bool closed_ = false;
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
        isAttached_ = isAttached_ || thread_.attach(shared_from_this());
        if (isAttached_) {
            newTasks_.push_back(std::move(task));
            if (newTasks_.size() == 1) {
                thread_.wake();
            }
            return;
        }
    }
    task.completion(nullptr);
}

void SandboxedImageDecoder::Worker::endLink(std::shared_ptr<DecodeLink> link) {
    const std::lock_guard lock(mutex_);
    if (isAttached_) {
        endedLinks_.push_back(std::move(link));
        thread_.wake();
    }
}

bool SandboxedImageDecoder::Worker::dispatch() {
    if (!loop_) {
        loop_.emplace(helper_, options_, pause_);
    }
    do {
        if (!takeNews()) {
            loop_.reset();
            return false;
        }
        for (DecodingLoop::Finished& finished : loop_->runOnce()) {
            completions_.run([&] {
                finished.completion(std::move(finished.image));
                finished.completion = nullptr;
            });
        }
    } while (hasNews());
    return !endIfIdle();
}

/// Moves what is new into the loop. False if the decoder is closed.
bool SandboxedImageDecoder::Worker::takeNews() {
    std::vector<DecodeTask> tasks;
    std::vector<std::shared_ptr<DecodeLink>> links;
    {
        const std::lock_guard lock(mutex_);
        if (closed_) {
            return false;
        }
        tasks.swap(newTasks_);
        links.swap(endedLinks_);
    }
    for (DecodeTask& task : tasks) {
        loop_->add(std::move(task));
    }
    for (const auto& link : links) {
        loop_->endLink(link);
    }
    return true;
}

bool SandboxedImageDecoder::Worker::hasNews() {
    const std::lock_guard lock(mutex_);
    return closed_ || !newTasks_.empty() || !endedLinks_.empty();
}

/// Ends the helper and returns true if there has been no image for the idle timeout.
bool SandboxedImageDecoder::Worker::endIfIdle() {
    const auto now = DecodingLoop::Clock::now();
    if (!loop_->isIdle()) {
        idleUntil_ = Time::max();
    } else if (idleUntil_ == Time::max()) {
        idleUntil_ = now + options_.idleTimeout;
    }
    if (now < idleUntil_) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    if (!newTasks_.empty()) {
        return false;
    }
    isAttached_ = false;
    endedLinks_.clear();
    idleUntil_ = Time::max();
    loop_.reset();
    return true;
}

LoopSource::Time SandboxedImageDecoder::Worker::prepare(std::vector<pollfd>& watched) {
    return std::min(idleUntil_, loop_->prepare(watched));
}

void SandboxedImageDecoder::Worker::close() {
    std::vector<DecodeTask> dropped;  // without the lock: a task may end its link
    {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        dropped.swap(newTasks_);
        thread_.wake();
    }
    completions_.close();
}

SandboxedImageDecoder::SandboxedImageDecoder(std::string helperPath, SourceLoop& thread,
                                             DecodingOptions options)
    : worker_(std::make_shared<Worker>(std::move(helperPath), thread, std::move(options))) {}

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
