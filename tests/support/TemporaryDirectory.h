#pragma once

#include <string>

namespace glintmark::test {

/// An empty directory that is removed, with its contents, at the end of the test. The operations
/// take paths relative to it. They fail the test if the system refuses.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();

    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return path_; }
    std::string path(const std::string& name) const { return path_ + "/" + name; }
    std::string operator/(const std::string& name) const { return path(name); }

    /// Writes a file, makes missing parent directories, and returns its path.
    std::string write(const std::string& name, const std::string& bytes = "") const;
    void createDirectories(const std::string& name) const;
    void createLink(const std::string& target, const std::string& name) const;  ///< Symbolic.
    void move(const std::string& from, const std::string& to) const;
    void remove(const std::string& name) const;       ///< With its contents.
    std::string read(const std::string& name) const;  ///< The whole file.

private:
    std::string path_;
};

}  // namespace glintmark::test
