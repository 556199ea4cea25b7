#pragma once

#include <memory>

#include "base/graphics/TemplateImage.h"
#include "platform/Menu.h"

namespace glintmark::platform {

/// The length of an item that is as wide as the bar is high.
inline constexpr double squareStatusItemLength = -2;

/// The visible part of a status item. Main thread only.
class StatusBarButton {
public:
    virtual ~StatusBarButton() = default;

    virtual void setImage(const TemplateImage& image) = 0;
};

/// One item of the desktop's status bar. Until it is destroyed, it is shown whenever the desktop
/// has such a bar, now or later. Main thread only.
class StatusItem {
public:
    virtual ~StatusItem() = default;

    virtual StatusBarButton* button() = 0;  ///< Null when the item has none. Owned by the item.

    /// Replaces the whole menu. From now on a choice in an earlier menu does nothing.
    virtual void setMenu(Menu menu) = 0;
};

class StatusBar {
public:
    virtual ~StatusBar() = default;

    /// Never null: without a bar the item waits for one.
    virtual std::unique_ptr<StatusItem> statusItem(double length) = 0;
};

}  // namespace glintmark::platform
