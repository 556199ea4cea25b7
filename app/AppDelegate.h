#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/AdmissionGate.h"
#include "base/graphics/BezierPath.h"
#include "base/graphics/Geometry.h"
#include "base/graphics/TemplateImage.h"
#include "platform/Application.h"
#include "platform/FileIdentity.h"
#include "platform/Menu.h"
#include "platform/StatusBar.h"
#include "watcher/FileWatcher.h"
#include "watcher/FileWatcherEvent.h"

namespace glintmark {

namespace platform {
class PreparedIcon;
}  // namespace platform

/// The program: owns the status item, the one watcher and the list of watched folders, answers the
/// menu, and turns each reported file into an icon and a notification.
///
/// Exactly one exists, made by `std::make_shared`. Main thread only, except `processWeblocFile`.
/// All public operations are virtual, and the class itself calls them virtually. The sources are
/// split by concern: AppDelegate.cpp (launch, folder list), AppDelegateMenu.cpp,
/// AppDelegatePipeline.cpp.
class AppDelegate : public platform::ApplicationDelegate,
                    public std::enable_shared_from_this<AppDelegate> {
public:
    AppDelegate();

    /// Does not stop the watcher, which stops when its last reference is released.
    ~AppDelegate() override;

    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Null until `setupStatusItem()`.
    virtual platform::StatusItem* statusItem() const;
    virtual void setStatusItem(std::unique_ptr<platform::StatusItem> item);

    /// Null until `startWatching()`.
    virtual std::shared_ptr<FileWatcher> fileWatcher() const;
    virtual void setFileWatcher(std::shared_ptr<FileWatcher> watcher);

    /// Absolute paths in the order shown: the default folders, then those the user added. No two
    /// are equal as strings; whether they exist is never checked.
    virtual const std::vector<std::string>& watchedFolders() const;
    virtual void setWatchedFolders(std::vector<std::string> folders);
    virtual std::vector<std::string>& modifyWatchedFolders();

    void applicationDidFinishLaunching() override;

    /// Shows an item with the drawn icon and an empty menu in the status bar.
    virtual void setupStatusItem();
    virtual TemplateImage createMenuBarIcon();

    /// A closed star of twice `points` vertices, which alternate between the two radii. It begins
    /// straight above `center` and runs anticlockwise. A negative `points` ends the process.
    virtual BezierPath createStarPath(Point center, double outerRadius, double innerRadius,
                                      std::int64_t points);

    /// Gives the status item, which must exist, a new menu with the current folders.
    virtual void rebuildMenu();

    /// Replaces the watcher by one for the current folders. Does not stop the old one.
    virtual void startWatching();

    /// Call this after each change of the folder list. Stops the watcher, starts a new one, saves
    /// the list and rebuilds the menu.
    virtual void restartWatching();
    virtual void saveExtraFolders();

    /// Schedules `processWeblocFile` for a reported file if it is a link file.
    virtual void handleFileEvent(const FileWatcherEvent& event);

    /// Reads the link, finds the site's icon, sets it and notifies. Runs on the global queue.
    virtual void processWeblocFile(const std::string& path);
    virtual void showNotification(const std::string& title, const std::string& body);

    /// Lets the user choose a folder and adds it to the watched ones.
    void addFolder() override;

    /// Stops watching the folder whose position in the list is the item's tag.
    virtual void removeFolder(const platform::MenuItem& sender);

    /// Opens the file browser at the folder whose position in the list is the item's tag.
    virtual void revealFolder(const platform::MenuItem& sender);
    virtual void openWebsite();
    void quit() override;

private:
    /// The user's Desktop and Downloads folders, which are always watched, come first in the list.
    static constexpr long defaultFolderCount = 2;

    using MenuCommand = void (AppDelegate::*)();
    using FolderCommand = void (AppDelegate::*)(const platform::MenuItem&);

    platform::StatusItem& requiredStatusItem() const;
    platform::MenuItem commandItem(std::string title, MenuCommand command,
                                   std::string keyEquivalent = "");
    platform::MenuItem folderCommandItem(std::string title, FolderCommand command, long folder);
    platform::MenuItem folderItem(long folder, const std::string& home);
    bool isWatched(const std::string& folder) const;
    bool isExtraFolder(long index) const;
    /// A link file, and which file was read there.
    struct ReadFile {
        std::string path;
        platform::FileIdentity identity;
    };

    void readLink(const std::string& path);
    void fetchIcon(const std::string& link, const ReadFile& file, const AdmissionGate::Place& place,
                   const std::shared_ptr<std::atomic_flag>& isEnded);
    void applyIcon(std::shared_ptr<const platform::PreparedIcon> icon, const ReadFile& file);

    std::unique_ptr<platform::StatusItem> statusItem_;
    std::shared_ptr<FileWatcher> fileWatcher_;
    std::vector<std::string> watchedFolders_;
    AdmissionGate reads_;    ///< Its places are bytes of link files.
    AdmissionGate fetches_;  ///< A fetch keeps its place until its icon is set.
};

}  // namespace glintmark
