#include "app/AppDelegate.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

#include "base/text/TextDescription.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/UserDefaults.h"
#include "platform/UserNotificationCenter.h"

namespace glintmark {

using platform::services;

namespace {

constexpr const char* extraFoldersKey = "extraFolders";

// Limits the number of images in memory when thousands of links arrive at once. Large enough to
// keep all connections of the HTTP client busy while many sites do not answer.
constexpr std::size_t maximumFetches = 128;
constexpr std::size_t maximumLentFetches = 32;

// The bytes of the link files that are in memory at once. A larger file is read alone.
constexpr std::size_t maximumReadBytes = std::size_t{32} * 1024 * 1024;

void requestAuthorization() {
    services().userNotificationCenter.requestAuthorization(
        platform::authorizationAlert | platform::authorizationSound,
        [](bool granted, const std::optional<std::string>& error) {
            if (granted && !error) {
                services().log.write("Glintmark: Notification authorized");
            }
        });
}

}  // namespace

AppDelegate::AppDelegate()
    : reads_({maximumReadBytes}), fetches_({maximumFetches, maximumLentFetches}) {}
AppDelegate::~AppDelegate() = default;

platform::StatusItem* AppDelegate::statusItem() const { return statusItem_.get(); }

void AppDelegate::setStatusItem(std::unique_ptr<platform::StatusItem> item) {
    statusItem_ = std::move(item);
}

std::shared_ptr<FileWatcher> AppDelegate::fileWatcher() const { return fileWatcher_; }

void AppDelegate::setFileWatcher(std::shared_ptr<FileWatcher> watcher) {
    fileWatcher_ = std::move(watcher);
}

const std::vector<std::string>& AppDelegate::watchedFolders() const { return watchedFolders_; }

void AppDelegate::setWatchedFolders(std::vector<std::string> folders) {
    watchedFolders_ = std::move(folders);
}

std::vector<std::string>& AppDelegate::modifyWatchedFolders() { return watchedFolders_; }

bool AppDelegate::isWatched(const std::string& folder) const {
    const auto& folders = watchedFolders();
    return std::find(folders.begin(), folders.end(), folder) != folders.end();
}

void AppDelegate::applicationDidFinishLaunching() {
    setupStatusItem();
    const auto defaults = services().fileManager.desktopAndDownloads();
    static_assert(defaults.size() == defaultFolderCount);
    setWatchedFolders({defaults.begin(), defaults.end()});
    if (const auto extraFolders = services().userDefaults.stringArray(extraFoldersKey)) {
        for (const auto& folder : *extraFolders) {
            if (!isWatched(folder)) {
                modifyWatchedFolders().push_back(folder);
            }
        }
    }
    requestAuthorization();
    startWatching();
    rebuildMenu();
    services().log.write("Glintmark: Started. Watching: " + listDescription(watchedFolders()));
}

void AppDelegate::startWatching() {
    auto report = [weak = weak_from_this()](const FileWatcherEvent& event) {
        if (const auto self = weak.lock()) {
            self->handleFileEvent(event);
        }
    };
    setFileWatcher(std::make_shared<FileWatcher>(watchedFolders(), std::move(report)));
    if (const auto watcher = fileWatcher()) {
        watcher->start();
    }
}

void AppDelegate::restartWatching() {
    if (const auto watcher = fileWatcher()) {
        watcher->stop();
    }
    startWatching();
    saveExtraFolders();
    rebuildMenu();
}

void AppDelegate::saveExtraFolders() {
    const auto& folders = watchedFolders();
    const auto defaults = std::min<std::ptrdiff_t>(defaultFolderCount, std::ssize(folders));
    services().userDefaults.set(extraFoldersKey, {folders.begin() + defaults, folders.end()});
}

}  // namespace glintmark
