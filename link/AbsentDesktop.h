#pragma once

#include "platform/Application.h"
#include "platform/Bundle.h"
#include "platform/EventStream.h"
#include "platform/OpenPanel.h"
#include "platform/StatusBar.h"
#include "platform/Timer.h"
#include "platform/UserDefaults.h"
#include "platform/UserNotificationCenter.h"
#include "platform/Workspace.h"

namespace glintmark::link {

/// The services that a fetch does not use, for a tool without a desktop. Each call does nothing and
/// returns an empty result.
class AbsentDesktop final : public platform::Application,
                            public platform::Bundle,
                            public platform::EventStreamFactory,
                            public platform::OpenPanel,
                            public platform::StatusBar,
                            public platform::Timers,
                            public platform::UserDefaults,
                            public platform::UserNotificationCenter,
                            public platform::Workspace {
public:
    void setActivationPolicy(platform::ActivationPolicy) override {}
    void setDelegate(platform::ApplicationDelegate&) override {}
    void run() override {}
    void terminate() override {}

    std::optional<std::string> infoString(const std::string&) override { return {}; }
    std::string localizedString(const std::string& key) override { return key; }

    std::unique_ptr<platform::EventStream> create(std::span<const std::string>,
                                                  std::chrono::nanoseconds,
                                                  platform::EventStream::Handler) override {
        return nullptr;
    }

    Result runModal(const Settings&) override { return {}; }

    std::unique_ptr<platform::StatusItem> statusItem(double) override { return nullptr; }

    std::shared_ptr<platform::Timer> scheduleRepeating(std::chrono::nanoseconds,
                                                       std::function<void()>) override {
        return nullptr;
    }

    std::optional<std::vector<std::string>> stringArray(const std::string&) override { return {}; }
    void set(const std::string&, const std::vector<std::string>&) override {}

    void requestAuthorization(unsigned, AuthorizationHandler handler) override {
        handler(false, std::nullopt);
    }
    void add(platform::UserNotificationRequest, AddHandler handler) override {
        handler("no desktop");
    }

    std::shared_ptr<const platform::PreparedIcon> prepareIcon(const Image&) override {
        return nullptr;
    }
    bool setIcon(std::shared_ptr<const platform::PreparedIcon>, const std::string&,
                 const std::optional<platform::FileIdentity>&) override {
        return false;
    }
    bool openFileViewer(const std::string&) override { return false; }
    bool open(const URL&) override { return false; }
};

}  // namespace glintmark::link
