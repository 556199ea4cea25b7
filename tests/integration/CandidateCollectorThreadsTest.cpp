#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>

#include "favicon/CandidateCollector.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/favicon/Pictures.h"
#include "tests/support/TestQueues.h"

// The collector of candidates with completions on real threads.

namespace glintmark {
namespace {

using testing::ElementsAre;

/// All queues run their work at once, on the thread that submits it. So the collector completes
/// inside the last download's completion, as early as a thread of the real queue could begin.
class InlineQueues final : public platform::DispatchQueues {
public:
    DispatchQueue& main() override { return queue_; }
    DispatchQueue& global(platform::QualityOfService /*quality*/) override { return queue_; }
    std::unique_ptr<DispatchQueue> makeSerial(const std::string& /*label*/) override {
        return std::make_unique<test::InlineQueue>();
    }

private:
    test::InlineQueue queue_;
};

class CandidateCollectorThreadsTest : public testing::Test {
protected:
    /// Ends the collection. All candidates are in the list when this runs.
    void finish() {
        collector_.whenComplete([this](const std::vector<IconCandidate>& candidates) {
            ++completions_;
            for (const IconCandidate& candidate : candidates) {
                sources_.push_back(candidate.source);
            }
        });
    }

    const CandidateCollector& collector() const { return collector_; }
    int completions() const { return completions_; }
    const std::vector<IconSource>& sources() const { return sources_; }

private:
    InlineQueues queues_;
    doubles::Fakes fakes_;
    platform::Services services_ = fakes_.servicesWith({.dispatchQueues = &queues_});
    platform::ServicesScope scope_{services_};
    CandidateCollector collector_;
    std::atomic<int> completions_ = 0;
    std::vector<IconSource> sources_;
};

TEST_F(CandidateCollectorThreadsTest, AnImageIsInTheListBeforeItsDownloadCountsAsOver) {
    const auto download = collector().awaitImage(IconSource::manifest);
    finish();
    download(Picture(1, 1).image());
    EXPECT_EQ(completions(), 1);
    EXPECT_THAT(sources(), ElementsAre(IconSource::manifest));
}

TEST_F(CandidateCollectorThreadsTest, CandidatesAreInTheListBeforeTheirDownloadCountsAsOver) {
    const auto download = collector().awaitCandidates();
    finish();
    download({candidateOfSize({1, 1}, false, IconSource::htmlIcon),
              candidateOfSize({1, 1}, false, IconSource::htmlAppleTouchIcon)});
    EXPECT_EQ(completions(), 1);
    EXPECT_THAT(sources(), ElementsAre(IconSource::htmlIcon, IconSource::htmlAppleTouchIcon));
}

TEST_F(CandidateCollectorThreadsTest, NoImageOfDownloadsOnManyThreadsIsLost) {
    constexpr std::size_t threadCount = 8;
    constexpr std::size_t downloadsPerThread = 500;
    const auto image = Picture(1, 1).image();
    std::latch begin(threadCount);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < threadCount; ++i) {
        std::vector<CandidateCollector::ImageCompletion> downloads;
        for (std::size_t k = 0; k < downloadsPerThread; ++k) {
            downloads.push_back(collector().awaitImage(IconSource::manifest));
        }
        threads.emplace_back([&, downloads = std::move(downloads)] {
            begin.arrive_and_wait();
            for (const auto& download : downloads) {
                download(image);
            }
        });
    }
    finish();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(completions(), 1);
    EXPECT_EQ(sources().size(), threadCount * downloadsPerThread);
}

}  // namespace
}  // namespace glintmark
