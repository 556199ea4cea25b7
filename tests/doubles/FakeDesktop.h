#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Application.h"
#include "platform/Bundle.h"
#include "platform/OpenPanel.h"
#include "platform/Workspace.h"

namespace glintmark::doubles {

class FakeApplication final : public platform::Application {
public:
    void setActivationPolicy(platform::ActivationPolicy policy) override { policy_ = policy; }
    void setDelegate(platform::ApplicationDelegate& delegate) override { delegate_ = &delegate; }
    void run() override { ++runs_; }
    void terminate() override { ++terminations_; }

    std::optional<platform::ActivationPolicy> activationPolicy() const { return policy_; }
    platform::ApplicationDelegate* delegate() const { return delegate_; }
    int runs() const { return runs_; }
    int terminations() const { return terminations_; }

private:
    std::optional<platform::ActivationPolicy> policy_;
    platform::ApplicationDelegate* delegate_ = nullptr;
    int runs_ = 0;
    int terminations_ = 0;
};

class FakeBundle final : public platform::Bundle {
public:
    std::optional<std::string> infoString(const std::string& key) override;
    std::string localizedString(const std::string& key) override;

    std::map<std::string, std::string> info;   ///< Filled in by the test.
    std::map<std::string, std::string> texts;  ///< By key, in the only language.
};

class FakeOpenPanel final : public platform::OpenPanel {
public:
    Result runModal(const Settings& settings) override;

    /// The answer of the next panel. A panel without an answer is cancelled.
    void answer(Result result) { answers_.push_back(std::move(result)); }
    void choose(std::string path) { answer({platform::ModalResponse::ok, std::move(path)}); }

    /// The settings of every panel that was run, in order.
    const std::vector<Settings>& settings() const { return settings_; }

private:
    std::deque<Result> answers_;
    std::vector<Settings> settings_;
};

class FakeWorkspace final : public platform::Workspace {
public:
    struct Icon {
        Image image;
        std::string path;
        std::optional<platform::FileIdentity> read;
    };

    std::shared_ptr<const platform::PreparedIcon> prepareIcon(const Image& image) override;
    bool setIcon(std::shared_ptr<const platform::PreparedIcon> icon, const std::string& path,
                 const std::optional<platform::FileIdentity>& read) override;
    bool openFileViewer(const std::string& folder) override;
    bool open(const URL& url) override;

    void refuse() { succeeds_ = false; }  ///< Everything from now on.

    /// Called each time an icon is prepared.
    std::function<void()> preparing = [] {};

    /// All requests, refused or not, in order.
    const std::vector<Icon>& icons() const { return icons_; }
    const std::vector<Image>& preparedIcons() const { return preparedIcons_; }
    const std::vector<std::string>& fileViewers() const { return fileViewers_; }
    const std::vector<std::string>& openedURLs() const { return openedURLs_; }

private:
    bool succeeds_ = true;
    std::vector<Icon> icons_;
    std::vector<Image> preparedIcons_;
    std::vector<std::string> fileViewers_;
    std::vector<std::string> openedURLs_;
};

}  // namespace glintmark::doubles
