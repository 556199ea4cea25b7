#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/AppDelegate.h"
#include "app/RunApplication.h"
#include "platform/Application.h"

namespace glintmark {
namespace {

/// Records its calls.
class RecordingApplication final : public platform::Application {
public:
    void setActivationPolicy(platform::ActivationPolicy policy) override {
        calls.emplace_back(policy == platform::ActivationPolicy::accessory ? "accessory" : "other");
    }
    void setDelegate(platform::ApplicationDelegate& given) override {
        calls.emplace_back("delegate");
        delegate = &given;
    }
    void run() override { calls.emplace_back("run"); }
    void terminate() override { calls.emplace_back("terminate"); }

    std::vector<std::string> calls;
    platform::ApplicationDelegate* delegate = nullptr;
};

TEST(RunApplicationTest, ThePolicyIsSetThenTheDelegateAndThenTheLoopRuns) {
    RecordingApplication application;
    const auto delegate = runApplication(application);
    EXPECT_THAT(application.calls, testing::ElementsAre("accessory", "delegate", "run"));
    EXPECT_EQ(application.delegate, delegate.get());
}

}  // namespace
}  // namespace glintmark
