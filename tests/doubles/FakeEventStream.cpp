#include "tests/doubles/FakeEventStream.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "base/work/DispatchQueue.h"

namespace glintmark::doubles {

namespace {

class FakeEventStream final : public platform::EventStream {
public:
    FakeEventStream(std::shared_ptr<StreamRecord> record, bool refusesStart)
        : record_(std::move(record)), refusesStart_(refusesStart) {}

    ~FakeEventStream() override {
        EXPECT_TRUE(record_->isInvalidated || !was("start")) << "destroyed while running";
        note("destroy");
        record_->isDestroyed = true;
        record_->handler = nullptr;
    }

    FakeEventStream(const FakeEventStream&) = delete;
    FakeEventStream& operator=(const FakeEventStream&) = delete;

    void setDispatchQueue(DispatchQueue& queue) override {
        EXPECT_FALSE(was("start")) << "the queue is set before the start";
        note("setDispatchQueue");
        record_->queue = &queue;
    }

    bool start() override {
        EXPECT_TRUE(was("setDispatchQueue")) << "started without a queue";
        EXPECT_FALSE(was("start")) << "started twice";
        note("start");
        return !refusesStart_;
    }

    void stop() override {
        EXPECT_TRUE(was("start")) << "stopped before the start";
        EXPECT_FALSE(was("stop")) << "stopped twice";
        note("stop");
        if (record_->onStop) {
            record_->onStop();
        }
    }

    void invalidate() override {
        EXPECT_TRUE(was("stop")) << "invalidated before the stop";
        EXPECT_FALSE(was("invalidate")) << "invalidated twice";
        note("invalidate");
        record_->isInvalidated = true;
        record_->queue = nullptr;
    }

private:
    void note(const char* call) { record_->calls.emplace_back(call); }
    bool was(const char* call) const {
        return std::find(record_->calls.begin(), record_->calls.end(), call) !=
               record_->calls.end();
    }

    std::shared_ptr<StreamRecord> record_;
    bool refusesStart_;
};

}  // namespace

std::unique_ptr<platform::EventStream> FakeEventStreamFactory::create(
    std::span<const std::string> folders, std::chrono::nanoseconds latency,
    platform::EventStream::Handler handler) {
    if (refuses_) {
        return nullptr;
    }
    auto record = std::make_shared<StreamRecord>();
    record->folders.assign(folders.begin(), folders.end());
    record->latency = latency;
    record->handler = std::move(handler);
    records_.push_back(record);
    return std::make_unique<FakeEventStream>(std::move(record), refusesStart_);
}

void FakeEventStreamFactory::report(const std::string& path, std::uint32_t flags) {
    report({{path, flags}});
}

void FakeEventStreamFactory::report(std::vector<platform::DirectoryEvent> events) {
    ASSERT_FALSE(records_.empty()) << "no stream to report through";
    auto& record = *records_.back();
    if (record.queue == nullptr) {
        return;  // a stream without a queue delivers nothing
    }
    record.queue->async([weak = std::weak_ptr(records_.back()), events = std::move(events)] {
        const auto stream = weak.lock();
        if (stream && !stream->isInvalidated) {
            stream->handler(events);
        }
    });
}

}  // namespace glintmark::doubles
