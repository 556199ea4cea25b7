#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "app/AppDelegate.h"
#include "tests/doubles/TestPlatform.h"
#include "tests/support/TestQueues.h"

// How many links are under way while the main thread is busy.

namespace glintmark {
namespace {

/// Virtual queues whose main queue runs only what the test lets run.
class BusyMainQueues final : public platform::DispatchQueues {
public:
    explicit BusyMainQueues(platform::DispatchQueues& others) : others_(others) {}

    test::HeldQueue& main() override { return main_; }
    DispatchQueue& global(platform::QualityOfService quality) override {
        return others_.global(quality);
    }
    std::unique_ptr<DispatchQueue> makeSerial(const std::string& label) override {
        return others_.makeSerial(label);
    }

private:
    platform::DispatchQueues& others_;
    test::HeldQueue main_;
};

class AppDelegateAdmissionTest : public testing::Test {
protected:
    /// Processes a link file for the site of that number.
    void process(std::size_t number) {
        const std::string site = "https://site-" + std::to_string(number) + ".example";
        const std::string file = "/home/kim/Desktop/" + std::to_string(number) + ".webloc";
        fakes_.files.create(file, "{ URL = \"" + site + "\"; }");
        // An image of a size alone, since drawing two hundred icons would take long.
        fakes_.urlSession.answer(site + "/favicon.ico", 200, "image 64x64");
        delegate_->processWeblocFile(file);
        fakes_.queues.runPending();
    }

    void runOneBlockOfMain() {
        queues_.main().runNext();
        fakes_.queues.runPending();
    }

    /// Links whose fetch has begun.
    std::size_t begun() const {
        const auto requested = fakes_.urlSession.requestedURLs();
        return static_cast<std::size_t>(std::ranges::count_if(
            requested, [](const auto& url) { return url.ends_with("/favicon.ico"); }));
    }
    /// Links that have come to their end on the main queue.
    std::size_t ended() {
        const auto lines = fakes_.log.lines();
        return static_cast<std::size_t>(std::ranges::count_if(
            lines, [](const auto& line) { return line.starts_with("Glintmark: Icon applied"); }));
    }
    std::size_t waitingForMain() { return queues_.main().size(); }

private:
    doubles::Fakes fakes_;
    BusyMainQueues queues_{fakes_.queues};
    platform::Services services_ = fakes_.servicesWith({.dispatchQueues = &queues_});
    platform::ServicesScope scope_{services_};
    std::shared_ptr<AppDelegate> delegate_ = std::make_shared<AppDelegate>();
};

TEST_F(AppDelegateAdmissionTest, ALinkKeepsItsPlaceUntilTheMainThreadIsDoneWithIt) {
    constexpr std::size_t links = 200;
    for (std::size_t i = 0; i < links; ++i) {
        process(i);
    }
    // Every fetch that began has its image, which must not make room for another image.
    const auto places = begun();
    EXPECT_LE(places, 128U);
    EXPECT_EQ(waitingForMain(), places);
    EXPECT_EQ(ended(), 0U);

    runOneBlockOfMain();
    EXPECT_EQ(ended(), 1U);
    EXPECT_EQ(begun(), places + 1);

    while (waitingForMain() > 0) {
        runOneBlockOfMain();
    }
    EXPECT_EQ(begun(), links);
    EXPECT_EQ(ended(), links);
}

}  // namespace
}  // namespace glintmark
