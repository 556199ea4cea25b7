#include "tests/doubles/FakeDesktop.h"

namespace glintmark::doubles {

namespace {

struct ImageAsIcon final : platform::PreparedIcon {
    explicit ImageAsIcon(Image prepared) : image(std::move(prepared)) {}

    Image image;
};

}  // namespace

std::optional<std::string> FakeBundle::infoString(const std::string& key) {
    const auto value = info.find(key);
    return value == info.end() ? std::nullopt : std::optional(value->second);
}

std::string FakeBundle::localizedString(const std::string& key) {
    const auto text = texts.find(key);
    return text == texts.end() ? key : text->second;
}

platform::OpenPanel::Result FakeOpenPanel::runModal(const Settings& settings) {
    settings_.push_back(settings);
    if (answers_.empty()) {
        return {};
    }
    auto answer = std::move(answers_.front());
    answers_.pop_front();
    return answer;
}

std::shared_ptr<const platform::PreparedIcon> FakeWorkspace::prepareIcon(const Image& image) {
    preparing();
    preparedIcons_.push_back(image);
    return std::make_shared<const ImageAsIcon>(image);
}

bool FakeWorkspace::setIcon(std::shared_ptr<const platform::PreparedIcon> icon,
                            const std::string& path,
                            const std::optional<platform::FileIdentity>& read) {
    if (icon == nullptr) {
        return false;
    }
    icons_.push_back({std::static_pointer_cast<const ImageAsIcon>(icon)->image, path, read});
    return succeeds_;
}

bool FakeWorkspace::openFileViewer(const std::string& folder) {
    fileViewers_.push_back(folder);
    return succeeds_;
}

bool FakeWorkspace::open(const URL& url) {
    openedURLs_.push_back(url.absoluteString());
    return succeeds_;
}

}  // namespace glintmark::doubles
