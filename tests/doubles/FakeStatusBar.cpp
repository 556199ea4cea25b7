#include "tests/doubles/FakeStatusBar.h"

#include <gtest/gtest.h>

#include <utility>

namespace glintmark::doubles {

namespace {

class FakeButton final : public platform::StatusBarButton {
public:
    explicit FakeButton(StatusItemRecord& record) : record_(record) {}
    void setImage(const TemplateImage& image) override { record_.image = image; }

private:
    StatusItemRecord& record_;
};

class FakeStatusItem final : public platform::StatusItem {
public:
    FakeStatusItem(std::shared_ptr<StatusItemRecord> record, bool hasButton)
        : record_(std::move(record)) {
        if (hasButton) {
            button_.emplace(*record_);
        }
    }
    ~FakeStatusItem() override { record_->isDestroyed = true; }

    FakeStatusItem(const FakeStatusItem&) = delete;
    FakeStatusItem& operator=(const FakeStatusItem&) = delete;

    platform::StatusBarButton* button() override { return button_ ? &*button_ : nullptr; }
    void setMenu(platform::Menu menu) override { record_->menus.push_back(std::move(menu)); }

private:
    std::shared_ptr<StatusItemRecord> record_;
    std::optional<FakeButton> button_;
};

}  // namespace

void StatusItemRecord::choose(const platform::MenuItem& item) {
    ASSERT_TRUE(item.isSelectable() && item.action) << item.title;
    const auto chosen = item;  // its menu may be replaced by the action
    chosen.action(chosen);
}

std::unique_ptr<platform::StatusItem> FakeStatusBar::statusItem(double length) {
    auto record = std::make_shared<StatusItemRecord>();
    record->length = length;
    items_.push_back(record);
    return std::make_unique<FakeStatusItem>(std::move(record), hasButtons_);
}

}  // namespace glintmark::doubles
