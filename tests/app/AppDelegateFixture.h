#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/AppDelegate.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark {

class AppDelegateTest : public doubles::PlatformTest {
protected:
    static constexpr const char* desktop = "/home/kim/Desktop";
    static constexpr const char* downloads = "/home/kim/Downloads";

    void TearDown() override {
        delegate_.reset();
        queues().runUntilIdle();  // the gate of the fetches looks once more after its last run
        PlatformTest::TearDown();
    }

    /// A launched delegate. Everything due has run; the log keeps the lines of the launch.
    std::shared_ptr<AppDelegate> launched() { return launch(std::make_shared<AppDelegate>()); }

    template <typename Delegate>
    std::shared_ptr<Delegate> launch(std::shared_ptr<Delegate> delegate) {
        delegate_ = delegate;
        delegate->applicationDidFinishLaunching();
        queues().runPending();
        return delegate;
    }

    /// Stores them as an earlier run of the program does.
    void storeExtraFolders(const std::vector<std::string>& folders) {
        JSON::Array array;
        for (const auto& folder : folders) {
            array.emplace_back(folder);
        }
        defaults().store("extraFolders", JSON(std::move(array)));
    }
    std::optional<std::vector<std::string>> storedExtraFolders() {
        return defaults().stringArray("extraFolders");
    }

    void addFolder(const std::string& path) {
        platform().openPanel.choose(path);
        delegate_->addFolder();
        queues().runPending();
    }
    void removeFolder(long index) {
        platform::MenuItem sender;
        sender.tag = index;
        delegate_->removeFolder(sender);
        queues().runPending();
    }

    doubles::FakeUserDefaults& defaults() { return platform().userDefaults; }
    doubles::FakeEventStreamFactory& streams() { return platform().eventStreams; }
    doubles::FakeUserNotificationCenter& notifications() { return platform().notifications; }
    doubles::StatusItemRecord& statusItem() { return *platform().statusBar.items().at(0); }
    const platform::Menu& menu() { return statusItem().menu(); }

private:
    std::shared_ptr<AppDelegate> delegate_;
};

}  // namespace glintmark
