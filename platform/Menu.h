#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace glintmark::platform {

/// One line of a menu. The status bar shows it and calls `action` on the main thread.
struct MenuItem {
    using Action = std::function<void(const MenuItem&)>;  ///< Receives the item that was chosen.

    static MenuItem separatorItem() {
        MenuItem item;
        item.isSeparator = true;
        return item;
    }

    std::string title;
    Action action;              ///< Empty for an item that does nothing.
    std::string keyEquivalent;  ///< A letter, pressed with the platform's modifier; or empty.
    std::string folder;  ///< The folder that the item stands for, or empty. The status bar marks
                         ///< one that is missing or cannot be read.
    long tag = 0;
    bool enabled = true;
    bool isSeparator = false;
    std::vector<MenuItem> submenu;

    /// True if the user can choose it. A line without action and submenu is greyed.
    bool isSelectable() const {
        return !isSeparator && enabled && (action != nullptr || !submenu.empty());
    }
};

struct Menu {
    void addItem(MenuItem item) { items.push_back(std::move(item)); }

    std::vector<MenuItem> items;
};

}  // namespace glintmark::platform
