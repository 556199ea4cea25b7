#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/StatusBar.h"

namespace glintmark::doubles {

/// One status item that was made. The record outlives the item.
struct StatusItemRecord {
    double length = 0;
    std::optional<TemplateImage> image;  ///< The image of its button.
    std::vector<platform::Menu> menus;   ///< All its menus; the last one shows.
    bool isDestroyed = false;

    const platform::Menu& menu() const { return menus.at(menus.size() - 1); }

    /// Chooses an item as the user does. Fails the test if the item cannot be chosen.
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
