#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/StatusBar.h"

namespace glintmark::doubles {

/// What is known of one status item that was made, also after its end.
struct StatusItemRecord {
    double length = 0;
    std::optional<TemplateImage> image;  ///< Of its button.
    std::vector<platform::Menu> menus;   ///< All it was given; the last one shows.
    bool isDestroyed = false;

    const platform::Menu& menu() const { return menus.at(menus.size() - 1); }

    /// Chooses an item as the user does. One that cannot be chosen fails the test.
    static void choose(const platform::MenuItem& item);
};

class FakeStatusBar final : public platform::StatusBar {
public:
    std::unique_ptr<platform::StatusItem> statusItem(double length) override;

    void makeItemsWithoutButton() { hasButtons_ = false; }

    /// All items made so far, oldest first.
    const std::vector<std::shared_ptr<StatusItemRecord>>& items() const { return items_; }

private:
    bool hasButtons_ = true;
    std::vector<std::shared_ptr<StatusItemRecord>> items_;
};

}  // namespace glintmark::doubles
