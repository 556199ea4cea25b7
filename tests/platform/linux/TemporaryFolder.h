#pragma once

#include <string>
#include <string_view>

namespace glintmark::platform {

/// An empty folder of a test's own, removed with all that is in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

    /// Writes a file, making the folders on the way to it; its path.
    std::string write(std::string_view name, std::string_view bytes = "link") const;

    std::string read(std::string_view name) const { return readWhole(*this / name); }

    static std::string readWhole(const std::string& path);

private:
    std::string path_;
};

}  // namespace glintmark::platform
