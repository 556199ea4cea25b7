#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <string>

#include "linux/files/ThreadedListings.h"
#include "platform/FileManager.h"

namespace glintmark::platform {

/// The file system by system calls. The home directory is `$HOME` if that is absolute, else the one
/// in the password database. The Desktop and Downloads folders are the user's own:
/// user-dirs.dirs(5), read at the first call.
class PosixFileManager : public FileManager {
public:
    std::string homeDirectoryForCurrentUser() override;
    std::array<std::string, 2> desktopAndDownloads() override;
    bool contentsOfDirectory(const std::string& directory,
                             const std::function<void(std::string_view name)>& visit) override;
    std::unique_ptr<Listings> beginListings(std::span<const std::string> directories,
                                            std::string_view suffix,
                                            std::chrono::nanoseconds limit) override;
    Entry entry(const std::string& path) override;
    bool fileExists(const std::string& path) override;
    std::size_t fileSize(const std::string& path) override;
    std::optional<std::string> contents(const std::string& path,
                                        FileIdentity* identity = nullptr) override;

private:
    std::once_flag hasReadUserDirs_;
    std::array<std::string, 2> desktopAndDownloads_;
    const std::shared_ptr<ListingThreads> listingThreads_ = std::make_shared<ListingThreads>();
};

}  // namespace glintmark::platform
