#include <cmath>
#include <numbers>
#include <string_view>
#include <utility>

#include "app/AppDelegate.h"
#include "app/L.h"
#include "base/system/FatalError.h"
#include "base/url/URL.h"
#include "platform/Application.h"
#include "platform/Bundle.h"
#include "platform/Configuration.h"
#include "platform/FileManager.h"
#include "platform/Log.h"
#include "platform/OpenPanel.h"
#include "platform/Platform.h"
#include "platform/Workspace.h"

namespace glintmark {

using platform::MenuItem;
using platform::services;

namespace {

constexpr const char* creditLine = "Made by the Glintmark developers";

constexpr Size iconSize{18, 18};
constexpr Point squareOrigin{1, 1};
constexpr Size squareSize{16, 16};
constexpr double squareCornerRadius = 3.5;
constexpr Point starCenter{9, 9};
constexpr double starOuterRadius = 5.8;
constexpr double starInnerRadius = 2.5;
constexpr std::int64_t starPoints = 5;

/// `text` with every occurrence of `part` replaced. An empty `part` matches nothing.
std::string replacingOccurrences(const std::string& text, std::string_view part,
                                 std::string_view replacement) {
    std::string result;
    std::size_t done = 0;
    while (!part.empty()) {
        const auto found = text.find(part, done);
        if (found == std::string::npos) {
            break;
        }
        result.append(text, done, found - done).append(replacement);
        done = found + part.size();
    }
    return result.append(text, done);
}

MenuItem captionItem(std::string title) {
    MenuItem item;
    item.title = std::move(title);
    return item;
}

std::int64_t vertexCount(std::int64_t points) {
    std::int64_t count = 0;
    if (__builtin_mul_overflow(points, std::int64_t{2}, &count)) {
        fatalError("Arithmetic overflow");
    }
    if (count < 0) {
        fatalError("Range requires lowerBound <= upperBound");
    }
    return count;
}

}  // namespace

platform::StatusItem& AppDelegate::requiredStatusItem() const {
    auto* const item = statusItem();
    if (item == nullptr) {
        fatalError("Unexpectedly found nil while implicitly unwrapping an Optional value");
    }
    return *item;
}

void AppDelegate::setupStatusItem() {
    setStatusItem(services().statusBar.statusItem(platform::squareStatusItemLength));
    if (auto* const button = requiredStatusItem().button()) {
        button->setImage(createMenuBarIcon());
    }
    requiredStatusItem().setMenu({});
}

TemplateImage AppDelegate::createMenuBarIcon() {
    auto path =
        BezierPath::roundedRect(squareOrigin, squareSize, squareCornerRadius, squareCornerRadius);
    path.append(createStarPath(starCenter, starOuterRadius, starInnerRadius, starPoints));
    // By this rule the star is a hole in the square.
    path.setWindingRule(WindingRule::evenOdd);
    return {iconSize, std::move(path)};
}

BezierPath AppDelegate::createStarPath(Point center, double outerRadius, double innerRadius,
                                       std::int64_t points) {
    BezierPath path;
    const double step = std::numbers::pi / static_cast<double>(points);
    const auto vertices = vertexCount(points);
    for (std::int64_t i = 0; i < vertices; ++i) {
        const double radius = i % 2 == 0 ? outerRadius : innerRadius;
        const double angle = static_cast<double>(i) * step + std::numbers::pi / 2;
        const Point vertex{center.x + radius * std::cos(angle),
                           center.y + radius * std::sin(angle)};
        if (i == 0) {
            path.moveTo(vertex);
        } else {
            path.lineTo(vertex);
        }
    }
    path.closePath();
    return path;
}

void AppDelegate::rebuildMenu() {
    const auto home = services().fileManager.homeDirectoryForCurrentUser();
    const auto version = services().bundle.infoString("CFBundleShortVersionString");
    platform::Menu menu;
    menu.addItem(commandItem("Glintmark v" + version.value_or("?"), &AppDelegate::openWebsite));
    menu.addItem(commandItem(creditLine, &AppDelegate::openWebsite));
    menu.addItem(MenuItem::separatorItem());
    menu.addItem(captionItem(L("menu.watching")));
    menu.addItem(MenuItem::separatorItem());
    auto foldersCaption = captionItem(L("menu.folders"));
    foldersCaption.enabled = false;
    menu.addItem(std::move(foldersCaption));
    for (long folder = 0; folder < std::ssize(watchedFolders()); ++folder) {
        menu.addItem(folderItem(folder, home));
    }
    menu.addItem(MenuItem::separatorItem());
    menu.addItem(commandItem(L("menu.addFolder"), &AppDelegate::addFolder, "a"));
    menu.addItem(MenuItem::separatorItem());
    menu.addItem(commandItem(L("menu.quit"), &AppDelegate::quit, "q"));
    requiredStatusItem().setMenu(std::move(menu));
}

MenuItem AppDelegate::folderItem(long folder, const std::string& home) {
    const auto& path = watchedFolders().at(static_cast<std::size_t>(folder));
    auto item = captionItem("  " + replacingOccurrences(path, home, "~"));
    item.folder = path;
    if (folder >= defaultFolderCount) {
        item.submenu = {
            folderCommandItem(L("menu.removeFolder"), &AppDelegate::removeFolder, folder),
            folderCommandItem(L("menu.revealInFinder"), &AppDelegate::revealFolder, folder)};
    }
    return item;
}

MenuItem AppDelegate::commandItem(std::string title, MenuCommand command,
                                  std::string keyEquivalent) {
    auto item = captionItem(std::move(title));
    item.keyEquivalent = std::move(keyEquivalent);
    item.action = [weak = weak_from_this(), command](const MenuItem& /*sender*/) {
        if (const auto self = weak.lock()) {
            ((*self).*command)();
        }
    };
    return item;
}

MenuItem AppDelegate::folderCommandItem(std::string title, FolderCommand command, long folder) {
    auto item = captionItem(std::move(title));
    item.tag = folder;
    item.action = [weak = weak_from_this(), command](const MenuItem& sender) {
        if (const auto self = weak.lock()) {
            ((*self).*command)(sender);
        }
    };
    return item;
}

void AppDelegate::addFolder() {
    platform::OpenPanel::Settings settings;
    settings.canChooseDirectories = true;
    settings.canChooseFiles = false;
    settings.allowsMultipleSelection = false;
    settings.message = L("panel.selectFolder");
    const auto result = services().openPanel.runModal(settings);
    if (result.response != platform::ModalResponse::ok || !result.path) {
        return;
    }
    const auto& path = *result.path;
    if (isWatched(path)) {
        return;
    }
    modifyWatchedFolders().push_back(path);
    restartWatching();
    services().log.write("Glintmark: Folder added → " + path);
}

void AppDelegate::removeFolder(const MenuItem& sender) {
    const auto index = sender.tag;
    if (!isExtraFolder(index)) {
        return;
    }
    auto& folders = modifyWatchedFolders();
    const auto removed = folders.begin() + index;
    const auto path = std::move(*removed);
    folders.erase(removed);
    services().log.write("Glintmark: Folder removed → " + path);
    restartWatching();
}

void AppDelegate::revealFolder(const MenuItem& sender) {
    if (isExtraFolder(sender.tag)) {
        services().workspace.openFileViewer(
            watchedFolders().at(static_cast<std::size_t>(sender.tag)));
    }
}

bool AppDelegate::isExtraFolder(long index) const {
    return index >= defaultFolderCount && index < std::ssize(watchedFolders());
}

void AppDelegate::openWebsite() {
    if (const auto url = URL::parse(services().configuration.productPageAddress)) {
        services().workspace.open(*url);
    }
}

void AppDelegate::quit() {
    if (const auto watcher = fileWatcher()) {
        watcher->stop();
    }
    services().application.terminate();
}

}  // namespace glintmark
