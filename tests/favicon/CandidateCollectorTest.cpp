#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "favicon/CandidateCollector.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/favicon/Pictures.h"

namespace glintmark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CandidateCollectorTest : public doubles::PlatformTest {
protected:
    void finish() {
        collector_.whenComplete([this](const std::vector<IconCandidate>& candidates) {
            ++completions_;
            queue_ = queues().current();
            for (const IconCandidate& candidate : candidates) {
                sources_.push_back(candidate.source);
            }
        });
    }

    CandidateCollector collector_;
    int completions_ = 0;
    std::string queue_;
    std::vector<IconSource> sources_;
};

TEST_F(CandidateCollectorTest, CandidatesComeInTheOrderOfTheirArrival) {
    const auto first = collector_.awaitImage(IconSource::manifest);
    const auto second = collector_.awaitCandidates();
    finish();
    second({candidateOfSize({1, 1}, false, IconSource::htmlIcon),
            candidateOfSize({1, 1}, false, IconSource::htmlAppleTouchIcon)});
    queues().runPending();
    EXPECT_EQ(completions_, 0) << "one download is still running";
    first(Picture(1, 1).image());
    queues().runPending();
    EXPECT_EQ(completions_, 1);
    EXPECT_EQ(queue_, "global");
    EXPECT_THAT(sources_, ElementsAre(IconSource::htmlIcon, IconSource::htmlAppleTouchIcon,
                                      IconSource::manifest));
}

TEST_F(CandidateCollectorTest, ADownloadWithoutAnImageAddsNothing) {
    collector_.awaitImage(IconSource::manifest)(nullptr);
    collector_.awaitCandidates()({});
    finish();
    queues().runPending();
    EXPECT_EQ(completions_, 1);
    EXPECT_THAT(sources_, IsEmpty());
}

TEST_F(CandidateCollectorTest, ADownloadMayCompleteBeforeTheNextOneStarts) {
    collector_.awaitImage(IconSource::manifest)(Picture(1, 1).image());
    const auto later = collector_.awaitImage(IconSource::faviconICO);
    finish();
    later(Picture(1, 1).image());
    queues().runPending();
    EXPECT_EQ(completions_, 1);
    EXPECT_THAT(sources_, ElementsAre(IconSource::manifest, IconSource::faviconICO));
}

}  // namespace
}  // namespace glintmark
