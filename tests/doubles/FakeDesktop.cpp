#include "tests/doubles/FakeDesktop.h"

namespace glintmark::doubles {

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

void FakeWorkspace::prepareIcon(const Image& image) { preparedIcons_.push_back(image); }

bool FakeWorkspace::setIcon(const Image& image, const std::string& path) {
    icons_.push_back({image, path});
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
