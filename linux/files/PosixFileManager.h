#pragma once

#include "platform/FileManager.h"

namespace glintmark::platform {

/// The file system by system calls. The home directory is `$HOME` if that is absolute, else the one
/// in the password database.
class PosixFileManager : public FileManager {
public:
    std::string homeDirectoryForCurrentUser() override;
    bool contentsOfDirectory(const std::string& directory,
                             const std::function<void(std::string_view name)>& visit) override;
    bool fileExists(const std::string& path) override;
    std::size_t fileSize(const std::string& path) override;
    std::optional<std::string> contents(const std::string& path,
                                        FileIdentity* identity = nullptr) override;
};

}  // namespace glintmark::platform
