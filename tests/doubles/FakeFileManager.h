#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/FileManager.h"

namespace glintmark::doubles {

/// A folder tree in memory that records each listing. Names are listed in the order in which they
/// were made. A listing allocates nothing per name.
class FakeFileManager final : public platform::FileManager {
public:
    FakeFileManager();

    std::string homeDirectoryForCurrentUser() override { return home_; }
    std::array<std::string, 2> desktopAndDownloads() override;
    bool contentsOfDirectory(const std::string& directory,
                             const std::function<void(std::string_view)>& visit) override;
    std::unique_ptr<platform::Listings> beginListings(std::span<const std::string> directories,
                                                      std::string_view suffix,
                                                      std::chrono::nanoseconds limit) override;
    platform::Entry entry(const std::string& path) override;
    bool fileExists(const std::string& path) override;
    std::size_t fileSize(const std::string& path) override;
    std::optional<std::string> contents(const std::string& path,
                                        platform::FileIdentity* identity = nullptr) override;

    void setHome(const std::string& path);  ///< Without this call "/home/kim".

    /// Without this call those in the home folder.
    void setDesktopAndDownloads(std::string desktop, std::string downloads) {
        desktopAndDownloads_ = {std::move(desktop), std::move(downloads)};
    }

    /// Makes a file or a folder, and missing parent folders.
    void create(const std::string& path, std::string bytes = "");
    void createDirectory(const std::string& path);
    void createLink(const std::string& path, const std::string& target);  ///< Symbolic.
    void remove(const std::string& path);                         ///< With everything below it.
    void rename(const std::string& from, const std::string& to);  ///< Of a file.

    void makeUnreadable(const std::string& path);  ///< A file or a folder.

    /// The next listing of its folder still names the file, but the file is gone.
    void vanishOnceListed(const std::string& path) { vanishing_.insert(path); }

    /// Listings of this directory that `beginListings` begins do not end, until `answer()`.
    void stopAnswering(const std::string& directory) { silent_.insert(directory); }
    void answer(const std::string& directory) { silent_.erase(directory); }

    /// The time limit of the latest `beginListings`.
    std::chrono::nanoseconds listingLimit() const { return listingLimit_; }

    std::size_t listings(const std::string& directory) const;
    std::vector<std::string> allListings() const { return listings_; }  ///< As requested.
    void forgetListings() { listings_.clear(); }

    /// The paths given to `entry`, in order.
    const std::vector<std::string>& existenceTests() const { return existenceTests_; }

    /// Called at the beginning of each listing.
    std::function<void(const std::string& directory)> onListing;

    /// Called at the beginning of each reading of a file's contents.
    std::function<void(const std::string& path)> onReading;
    /// Called at the beginning of each `fileExists`.
    std::function<void(const std::string& path)> onFollowing;

private:
    struct Node {
        bool isDirectory = false;
        bool isReadable = true;
        std::uint64_t inode = 0;
        std::string bytes;
        std::optional<std::string> target;  // of a symbolic link
        std::vector<std::string> names;     // of a directory's entries
    };

    class FakeListings;

    bool listWhileSomeVanish(const std::string& path,
                             const std::function<void(std::string_view)>& visit);
    Node& enter(const std::string& path, bool isDirectory);

    std::string home_;
    std::optional<std::array<std::string, 2>> desktopAndDownloads_;
    std::map<std::string, Node> nodes_;  // by path without a trailing slash
    std::uint64_t lastInode_ = 0;
    std::set<std::string> vanishing_;
    std::set<std::string> silent_;
    std::chrono::nanoseconds listingLimit_{};
    std::vector<std::string> listings_;
    std::vector<std::string> existenceTests_;
};

}  // namespace glintmark::doubles
