#pragma once

#include <memory>

#include "base/graphics/TemplateImage.h"
#include "platform/Menu.h"

namespace glintmark::platform {

/// An item's length that makes it as wide as the bar is high.
inline constexpr double squareStatusItemLength = -2;

/// What is drawn of a status item. Main thread only.
class StatusBarButton {
public:
    virtual ~StatusBarButton() = default;

    virtual void setImage(const TemplateImage& image) = 0;
};

/// One item of the desktop's status bar. It shows whenever the desktop has such a bar, now or
/// later, until it is destroyed. Main thread only.
class StatusItem {
public:
    virtual ~StatusItem() = default;

    virtual StatusBarButton* button() = 0;  ///< Null when the item has none. Owned by the item.

    /// Replaces the whole menu. A choice made in an earlier menu has no effect any more.
    virtual void setMenu(Menu menu) = 0;
};

class StatusBar {
public:
    virtual ~StatusBar() = default;

    /// Never null: an item without a bar waits for one.
    virtual std::unique_ptr<StatusItem> statusItem(double length) = 0;
};

}  // namespace glintmark::platform
