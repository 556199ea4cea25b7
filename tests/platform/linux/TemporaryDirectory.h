#pragma once

#include <string>

namespace glintmark::platform {

/// An empty directory that goes, with all that is in it, at the end of the test. The operations
/// take paths relative to it and fail the test when the system refuses.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();

    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return path_; }
    std::string path(const std::string& name) const { return path_ + "/" + name; }

    void createFile(const std::string& name, const std::string& bytes = "") const;
    void createDirectories(const std::string& name) const;
    void createLink(const std::string& target, const std::string& name) const;  ///< Symbolic.
    void move(const std::string& from, const std::string& to) const;
    void remove(const std::string& name) const;  ///< With all below it.
    std::string read(const std::string& name) const;

private:
    std::string path_;
};

}  // namespace glintmark::platform
